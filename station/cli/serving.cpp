#include "station/cli/serving.h"

#include <chrono>

#include "station/cli/commands.h"
#include "station/serve/bus_address.h"
#include "station/terminal_text.h"

namespace station {
void addServeOptions(CLI::App& command, ServeArguments& arguments) {
    auto* const address =
        command
            .add_option("--serve", arguments.address,
                        "Let other programs read the CAN channels while they are measured, by the "
                        "socketcand protocol: each channel is a bus, named as in a .log. The "
                        "loopback address reaches this machine's programs alone, 0.0.0.0 or "
                        "another of its addresses whoever reaches that")
            ->type_name("socketcand://ADDRESS:PORT")
            ->check(notEmpty());
    command
        .add_flag("--serve-beacon", arguments.hasBeacon,
                  "Announce the buses in the network of that address, every 2 seconds to UDP port "
                  "42000")
        ->needs(address);
}

std::unique_ptr<BusServer> openServer(const ServeArguments& arguments) {
    if (arguments.address.empty()) {
        return nullptr;
    }
    BusServerSettings settings;
    settings.address = parseBusAddress(arguments.address);
    settings.hasBeacon = arguments.hasBeacon;
    return std::make_unique<BusServer>(settings);
}

void beginServing(BusServer& server, Measurement& measurement) {
    server.begin(measurement.summarize());
    measurement.addListener(server);
    printMessage(describeBuses(server.summarize()));
}

void finishServing(BusServer& server, LiveView& view, StopSignal& stop) {
    stop.setPatience(std::chrono::seconds(10));  // for `end`
    server.end();
    view.report(server.takeTexts());
}

}  // namespace station
