#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/descriptor.h"
#include "station/cli/commands.h"
#include "station/cli/extcap_install.h"
#include "station/cli/setups.h"
#include "station/permission.h"
#include "station/recording/pcapng_format.h"
#include "station/recording/pcapng_recording.h"
#include "station/recording/word_names.h"
#include "station/session/measurement.h"
#include "station/terminal_text.h"

#ifndef CMP_VERSION
#define CMP_VERSION "unknown"
#endif

namespace station {
namespace {

namespace fs = std::filesystem;
using Clock = Measurement::Clock;

constexpr const char* extcapAbout =
    R"(Lets Wireshark and tshark capture from the modules of setups, as from network interfaces.

With --install each module of these setups is among Wireshark's interfaces from then on: a script,
cmp-station-extcap, in a folder in which Wireshark looks for such programs. Each capture is a
measurement of its own, of the module's used channels, or of all if none is used. All other options
are for Wireshark, which calls the script with them (its extcap protocol).)";

constexpr const char* extcapExamples = R"(
Examples:
  cmp-station extcap --install bench.xml
  sudo cmp-station extcap --install /etc/cmp-station/setup.xml \
      --folder /usr/lib/x86_64-linux-gnu/wireshark/extcap
  tshark -D
  tshark -i cmp-bench-0x5
  cmp-station extcap --setup bench.xml --extcap-interfaces)";

constexpr std::size_t longestInterface = 64;
/// Wireshark opens its end of the pipe beside starting the capture.
constexpr auto pipePatience = std::chrono::seconds(30);
constexpr auto pipePeriod = std::chrono::milliseconds(20);
constexpr auto flushPeriod = std::chrono::milliseconds(100);
constexpr std::size_t mostTexts = 20;

constexpr const char* noFilter =
    "capture filters aren't there for CAN and LIN: leave it empty, and use a display filter";

struct ExtcapOptions {
    std::vector<std::string> setups;
    std::string plugin;
    std::vector<std::string> install;
    std::string folder;
    bool listsInterfaces = false;
    bool listsLinkTypes = false;
    bool listsOptions = false;
    bool captures = false;
    bool isIgnored = false;
    std::string interface;
    std::string pipe;
    std::string filter;
    std::string ignored;
};

/// A module of a setup, as Wireshark has it.
struct ExtcapInterface {
    std::string value;  ///< ASCII, of letters, digits, '-', '.' and '_'
    std::string display;
    std::string wholeDisplay;  ///< with ConfigId and folder
    std::string setup;
    std::size_t module = 0;
    bool isLin = false;
};

/// Fit for the values of the protocol, which braces enclose.
std::string unbraced(const std::string& text) {
    std::string safe = printable(text);
    std::ranges::replace(safe, '{', '(');
    std::ranges::replace(safe, '}', ')');
    return safe;
}

/// Names depend on the names of the files and on ConfigIds, so that they stay when modules are
/// renamed or added.
void addInterfaces(Session& session, const std::string& setup, WordNames& names,
                   std::vector<ExtcapInterface>& interfaces) {
    const fs::path path(setup);
    const auto modules = session.getModules();
    for (std::size_t i = 0; i < modules.size(); ++i) {
        const Module& module = modules[i];
        interfaces.push_back(
            {"cmp-" + names.add(fmt::format("{}-0x{:X}", path.stem().string(), module.configId)),
             unbraced(
                 fmt::format("{} ({}, {})", module.name, module.type, path.filename().string())),
             unbraced(fmt::format("{} ({} 0x{:X}, {})", module.name, module.type, module.configId,
                                  setup)),
             setup, i, std::ranges::any_of(module.channels, [](const Channel& bus) {
                 return bus.busType == "LIN";
             })});
    }
}

/// Modules that would look alike in Wireshark's list get a longer text.
void setApart(std::vector<ExtcapInterface>& interfaces) {
    std::map<std::string, int> counts;
    for (const ExtcapInterface& interface : interfaces) {
        ++counts[interface.display];
    }
    for (ExtcapInterface& interface : interfaces) {
        if (counts[interface.display] > 1) {
            interface.display = interface.wholeDisplay;
        }
    }
}

/// A setup that can't be read is said, and hides no other.
std::vector<ExtcapInterface> findInterfaces(const ExtcapOptions& options) {
    std::vector<ExtcapInterface> interfaces;
    WordNames names(longestInterface);
    for (const std::string& setup : options.setups) {
        try {
            addInterfaces(*openSession(options.plugin, setup), setup, names, interfaces);
        } catch (const UserError& error) {
            printMessage(error.what());
        }
    }
    setApart(interfaces);
    return interfaces;
}

ExtcapInterface findInterface(const ExtcapOptions& options) {
    const auto interfaces = findInterfaces(options);
    const auto found = std::ranges::find(interfaces, options.interface, &ExtcapInterface::value);
    if (found == interfaces.end()) {
        throw UserError(
            fmt::format("there is no module {} in the setups; \"cmp-station extcap "
                        "--install SETUP...\" says which there are",
                        options.interface));
    }
    return *found;
}

/// The module's used channels and no others, or all of it.
void useOnly(Session& session, std::size_t wanted) {
    const auto modules = session.getModules();
    const auto& own = modules[wanted].channels;
    const bool usesAll = std::ranges::none_of(own, &Channel::isUsed);
    for (std::size_t i = 0; i < modules.size(); ++i) {
        for (const Channel& channel : modules[i].channels) {
            if (channel.output >= 0) {
                const bool isUsed = i == wanted && (channel.isUsed || usesAll);
                session.findOutput(channel).setUsed(isUsed ? hostTrue : hostFalse);
            }
        }
    }
}

/// A second end of the pipe, which shows whether somebody reads. None if it was asked to stop
/// before that.
Descriptor waitForReader(const std::string& path, StopSignal& stop) {
    const auto end = Clock::now() + pipePatience;
    while (!stop.waitUntil(Clock::now() + pipePeriod)) {
        Descriptor pipe(::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
        if (pipe.isOpen()) {
            return pipe;
        }
        if (errno != ENXIO || Clock::now() >= end) {
            throw UserError(ExitCode::Failed, fmt::format("--fifo: {}: {}", path,
                                                          errno == ENXIO ? "nobody reads from it"
                                                                         : std::strerror(errno)));
        }
    }
    return Descriptor();
}

bool isRead(const Descriptor& pipe) {
    pollfd wait{pipe.get(), 0, 0};
    return ::poll(&wait, 1, 0) == 0;
}

/// Until it is asked to stop or nobody reads any more. Returns what there is to know of it, if
/// anything was lost.
std::vector<std::string> measure(Measurement& measurement, const Descriptor& pipe,
                                 StopSignal& stop) {
    std::vector<std::string> texts;
    bool isWanted = true;
    for (auto next = Clock::now(); !measurement.isOver();) {
        next = std::max(next + Measurement::period, Clock::now());
        if (stop.waitUntil(next) || !isWanted) {
            measurement.leaveStalledDisk();
            measurement.requestStop();
            std::this_thread::sleep_until(next);
        }
        isWanted = isWanted && isRead(pipe);
        std::ranges::move(measurement.poll(Clock::now()), std::back_inserter(texts));
        texts.resize(std::min(texts.size(), mostTexts));
    }
    return isWanted && measurement.hasLost() ? texts : std::vector<std::string>();
}

ExitCode capture(const ExtcapOptions& options, StopSignal& stop) {
    if (options.pipe.empty()) {
        throw UserError("--capture needs the pipe that Wireshark reads: --fifo FILE");
    }
    // Also before an error is found: a reader whose pipe nobody ever opens waits for it.
    const Descriptor pipe = waitForReader(options.pipe, stop);
    if (!pipe.isOpen()) {
        return ExitCode::Good;
    }
    if (!options.filter.empty()) {
        throw UserError(noFilter);
    }
    const ExtcapInterface interface = findInterface(options);
    checkCapturePermission();
    const auto session = openSession(options.plugin, interface.setup);
    useOnly(*session, interface.module);
    const auto recordings = std::make_shared<RecordingSet>();
    recordings->add(std::make_unique<PcapngRecording>(options.pipe, true));
    Measurement measurement(*session, recordings);
    measurement.setFlushPeriod(flushPeriod);
    measurement.start();
    const auto texts = measure(measurement, pipe, stop);
    stop.beginCleanUp();
    printMessages(texts);
    return texts.empty() ? ExitCode::Good : ExitCode::Failed;
}

ExitCode install(const ExtcapOptions& options) {
    WordNames names(longestInterface);
    std::vector<ExtcapInterface> interfaces;
    for (auto at = options.install.begin(); at != options.install.end(); ++at) {
        const std::string& setup = *at;
        std::error_code error;
        if (std::any_of(options.install.begin(), at, [&](const std::string& before) {
                return fs::equivalent(before, setup, error);
            })) {
            throw UserError(fmt::format("--install {} is named twice", setup));
        }
        addInterfaces(*openSession(options.plugin, setup), setup, names, interfaces);
    }
    setApart(interfaces);
    if (interfaces.empty()) {
        throw UserError("there are no modules in these setups");
    }
    const auto folders =
        options.folder.empty() ? personalExtcapFolders() : std::vector<fs::path>{options.folder};
    std::string text;
    for (const fs::path& folder : folders) {
        text += installExtcap(folder, options.install, options.plugin).string() + " is there\n";
    }
    text += "Wireshark and tshark have from now on:\n";
    for (const ExtcapInterface& interface : interfaces) {
        text += fmt::format("  {}  {}\n", interface.value, interface.display);
    }
    printResult(text);
    return ExitCode::Good;
}

std::string describeInterfaces(const ExtcapOptions& options) {
    std::string text = "extcap {version=" CMP_VERSION "}{display=CMP capture modules}\n";
    for (const ExtcapInterface& interface : findInterfaces(options)) {
        text += fmt::format("interface {{value={}}}{{display={}}}\n", interface.value,
                            interface.display);
    }
    return text;
}

std::string describeLinkType(const ExtcapOptions& options) {
    return findInterface(options).isLin
               ? fmt::format("dlt {{number={}}}{{name=LIN}}{{display=LIN}}\n", pcapng::linkTypeLin)
               : fmt::format("dlt {{number={}}}{{name=CAN_SOCKETCAN}}{{display=CAN}}\n",
                             pcapng::linkTypeCan);
}

ExitCode run(const ExtcapOptions& options, StopSignal& stop) {
    if (!options.install.empty()) {
        return install(options);
    }
    if (options.listsInterfaces) {
        printResult(describeInterfaces(options));
    } else if (options.captures) {
        return capture(options, stop);
    } else if (options.listsLinkTypes) {
        printResult(describeLinkType(options));
    } else if (!options.filter.empty()) {
        printResult(std::string(noFilter) +
                    '\n');  // which is how Wireshark learns that it is wrong
    } else if (!options.listsOptions && !options.isIgnored) {
        throw UserError(
            "there is nothing to do: --install SETUP... makes the modules of setups "
            "interfaces of Wireshark");
    }
    return ExitCode::Good;
}

}  // namespace

void addExtcapCommand(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<ExtcapOptions>();
    CLI::App* const command = app.add_subcommand("extcap", extcapAbout);
    command->footer(extcapExamples);
    command
        ->add_option("--install", options->install,
                     "Make the modules of these setups interfaces of Wireshark; those that were "
                     "before aren't any more")
        ->type_name("SETUP")
        ->check(notEmpty());
    command
        ->add_option("--folder", options->folder,
                     "Where Wireshark looks for such programs; ~/.local/lib/wireshark/extcap, and "
                     "~/.config/wireshark/extcap for one before 4.2, by default")
        ->type_name("FOLDER")
        ->check(notEmpty());
    addRepeated(*command, "--setup", options->setups, "FILE",
                "A setup with such modules; may be given again")
        ->check(notEmpty());
    command->add_option("--plugin", options->plugin, "The plug-in's module")
        ->type_name("FILE")
        ->check(notEmpty());
    const auto flag = [&](const char* name, bool& target, const char* what) {
        command->add_flag(name, target, what)->group("Wireshark");
    };
    const auto option = [&](const char* name, std::string& target, const char* type,
                            const char* what) {
        return command->add_option(name, target, what)->type_name(type)->group("Wireshark");
    };
    flag("--extcap-interfaces", options->listsInterfaces, "List the modules");
    flag("--extcap-dlts", options->listsLinkTypes, "Say which packets the module gives");
    flag("--extcap-config", options->listsOptions, "List its options: there are none");
    flag("--capture", options->captures, "Capture from the module until nobody reads any more");
    flag("--extcap-cleanup-postkill", options->isIgnored, "Without effect");
    option("--extcap-interface", options->interface, "NAME", "The module");
    option("--fifo", options->pipe, "FILE", "The pipe that the capture goes to, as .pcapng");
    option("--extcap-capture-filter", options->filter, "FILTER", "Refused unless it is empty");
    option("--extcap-version", options->ignored, "VERSION", "Wireshark's; without effect")
        ->expected(0, 1);
    onChosen(*command, chosen, [options](StopSignal& stop) { return run(*options, stop); });
}

}  // namespace station
