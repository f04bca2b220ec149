#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "station/cli/live_view.h"
#include "station/serve/bus_server.h"
#include "station/session/measurement.h"
#include "station/stop_signal.h"

namespace station {

/// The options of `--serve` as the command line has them.
struct ServeArguments {
    std::string address;  ///< empty: nothing is served
    bool hasBeacon = false;
};

void addServeOptions(CLI::App& command, ServeArguments& arguments);
/// Takes the address; null if nothing is to be served. Throws UserError.
std::unique_ptr<BusServer> openServer(const ServeArguments& arguments);
/// Serves what is measured, and says on standard error which buses there are. Before the start; the
/// server outlives the measurement. Throws UserError.
void beginServing(BusServer& server, Measurement& measurement);
/// Sends the rest.
void finishServing(BusServer& server, LiveView& view, StopSignal& stop);

}  // namespace station
