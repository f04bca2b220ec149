#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/parse_number.h"
#include "core/string_helper.h"
#include "host/host_clock.h"
#include "station/cli/commands.h"
#include "station/cli/setup_show.h"
#include "station/cli/setups.h"
#include "station/cli/streaming.h"
#include "station/session/bus_load.h"
#include "station/signals/database.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr const char* setupAbout =
    R"(Makes and changes a setup file: which modules there are, and which of their channels are used.

MODULE is a module's row number, from 1, or its name. INTERFACE is a channel's interface ID, decimal
or, after 0x, hexadecimal, or "all". A file is written as a whole; the one before stays as FILE.bak.)";

constexpr const char* setupExamples = R"(
Examples:
  cmp-station setup new bench.xml
  cmp-station setup add bench.xml --type "CAN combo" --config-id 5 --name Front
  cmp-station setup channel bench.xml Front all --used yes
  cmp-station setup channel bench.xml Front 0x10 --name Powertrain --color FF8000
  cmp-station setup database bench.xml Front 0x10 --db powertrain.dbc
  cmp-station setup bitrate bench.xml Front 0x10 --nominal 500k --data 2M
  cmp-station setup set bench.xml Front --sync pps --clock-source yes
  cmp-station setup remove bench.xml 2 Doors
  cmp-station setup stream bench.xml nats://broker:4222 --station bench-7
  cmp-station setup stream bench.xml --none
  cmp-station setup show bench.xml --json)";

struct SetupOptions {
    std::string file;
    std::string plugin;
    std::string module;
    std::vector<std::string> modules;
    std::string interface;
    std::string type;
    std::string configId;
    std::string name;
    std::string sync;
    std::string clockSource;
    std::string used;
    std::string color;
    std::vector<std::string> databases;
    BitRates bitRates;
    bool hasNone = false;
    bool json = false;
    StreamArguments stream;
    bool hasNoStream = false;
};

std::uint32_t readNumber(const std::string& text, const char* what, std::uint32_t most) {
    const auto number = parseDecimalOrHex<std::uint32_t>(text);
    if (!number || *number > most) {
        throw UserError(fmt::format("{} must be a number from 0 to {} (0x{:X}), not \"{}\"", what,
                                    most, most, text));
    }
    return *number;
}

std::uint32_t readColor(const std::string& text) {
    const auto color = parseNumber<std::uint32_t>(text, 16);
    if (!color || text.size() != 6) {
        throw UserError(
            fmt::format("a colour is six hexadecimal digits, as in FF8000, not \"{}\"", text));
    }
    return *color;
}

/// The module of that name or row, from 0.
std::size_t findModule(Session& session, const std::string& wanted) {
    const auto modules = session.getModules();
    std::string known;
    std::vector<std::size_t> named;
    for (std::size_t i = 0; i < modules.size(); ++i) {
        known += fmt::format("{}{} \"{}\"", known.empty() ? "" : ", ", i + 1, modules[i].name);
        if (modules[i].name == wanted) {
            named.push_back(i);
        }
    }
    if (named.size() == 1) {
        return named.front();
    }
    const auto row = parseNumber<std::size_t>(wanted);
    if (named.empty() && row && *row >= 1 && *row <= modules.size()) {
        return *row - 1;
    }
    throw UserError(named.size() > 1 ? fmt::format("there are {} modules \"{}\"; take the row: {}",
                                                   named.size(), wanted, known)
                    : modules.empty()
                        ? fmt::format("there is no module \"{}\": the setup has none", wanted)
                        : fmt::format("there is no module \"{}\"; there are: {}", wanted, known));
}

std::vector<Channel> findChannels(Session& session, const SetupOptions& options) {
    const Module module = session.getModules()[findModule(session, options.module)];
    const std::string& wanted = options.interface;
    std::vector<Channel> found;
    std::string known;
    const bool all = wanted == "all";
    const std::uint32_t interface = all ? 0 : readNumber(wanted, "INTERFACE", 0xFFFF);
    for (const Channel& channel : module.channels) {
        known += fmt::format("{}0x{:X}", known.empty() ? "" : ", ", channel.interfaceId);
        if (all || channel.interfaceId == interface) {
            found.push_back(channel);
        }
    }
    if (found.empty()) {
        throw UserError(
            known.empty() ? "the module has no channels; give it a type first"
                          : fmt::format("there is no interface {}; there are: {}", wanted, known));
    }
    return found;
}

std::unique_ptr<SetupLock> lockSetup(const SetupOptions& options) {
    try {
        return std::make_unique<SetupLock>(options.file, [](const std::filesystem::path& folder) {
            printMessage(fmt::format("waiting until another program has changed the setups in {}",
                                     folder.string()));
        });
    } catch (const FileError& error) {
        throw UserError(ExitCode::Unreadable, error.what());
    }
}

/// Opens the file, changes the setup, and writes it again.
template <typename Change>
ExitCode edit(const SetupOptions& options, Change change) {
    const auto lock = lockSetup(options);
    editSetup(options.plugin, options.file, [&](Session& session) { change(session, options); });
    return ExitCode::Good;
}

ExitCode createSetup(const SetupOptions& options) {
    const auto lock = lockSetup(options);
    if (std::filesystem::exists(std::filesystem::symlink_status(options.file))) {
        throw UserError(
            fmt::format("{} is there already; choose another name, or remove it", options.file));
    }
    openSession(options.plugin, {})->save(SetupFile(options.file));
    return ExitCode::Good;
}

std::uint16_t readConfigId(const SetupOptions& options) {
    return static_cast<std::uint16_t>(readNumber(options.configId, "--config-id", 0xFFFF));
}

void addModule(Session& session, const SetupOptions& options) {
    Module module;
    module.type = options.type;
    module.configId = options.configId.empty() ? std::uint16_t{0} : readConfigId(options);
    module.name = options.name;
    session.addModule(module);
}

void removeModules(Session& session, const SetupOptions& options) {
    std::vector<std::size_t> rows;
    for (const std::string& module : options.modules) {
        rows.push_back(findModule(session, module));
    }
    session.removeModules(rows);
}

void changeModule(Session& session, std::size_t module, const CLI::App& command,
                  const SetupOptions& options) {
    if (command.count("--name") > 0) {  // first: channels that are made are named after it
        session.setName(module, options.name);
    }
    if (command.count("--type") > 0) {
        session.setType(module, options.type);
    }
    if (command.count("--config-id") > 0) {
        session.setConfigId(module, readConfigId(options));
    }
    session.requireOwnCmId(module);
}

void changeChannel(StationChannel& channel, const CLI::App& command, const SetupOptions& options) {
    if (!options.used.empty()) {
        channel.setUsed(toHostBool(options.used == "yes"));
    }
    if (command.count("--name") > 0) {
        channel.setName(Kestrova::Utils::Kcom::StringHelper::ToWide(options.name).c_str());
    }
    if (command.count("--color") > 0) {
        channel.setColor(readColor(options.color));
    }
}

void setClock(Session& session, std::size_t module, const SetupOptions& options) {
    ClockChoice clock = session.getClocks().at(module);
    if (!options.sync.empty()) {
        clock.syncMode =
            options.sync == "pps" ? HostGnssDevice::syncModePps : HostGnssDevice::syncModeSoft;
    }
    if (!options.clockSource.empty()) {
        clock.isSource = options.clockSource == "yes";
    }
    if (clock.isSource && clock.syncMode != HostGnssDevice::syncModePps) {
        throw UserError("only a module in PPS sync can be the clock source: add --sync pps");
    }
    session.chooseClock(module, clock);
}

using Options = std::shared_ptr<SetupOptions>;

CLI::App* addAction(CLI::App& setup, const char* name, const char* what, const Options& options) {
    CLI::App* const command = setup.add_subcommand(name, what);
    command->add_option("FILE", options->file, "The setup file")->required();
    command->add_option("--plugin", options->plugin, "The plug-in's module")->type_name("FILE");
    return command;
}

template <typename Change>
void onEdit(CLI::App& action, const Options& options, Command& chosen, Change change) {
    onChosen(action, chosen, [options, change](StopSignal&) { return edit(*options, change); });
}

void addModuleOptions(CLI::App& command, SetupOptions& options) {
    command.add_option("--config-id", options.configId, "Its ConfigId")->type_name("N");
    command.add_option("--name", options.name, "Its name")->type_name("NAME")->check(isUtf8());
}

void addEditActions(CLI::App& setup, const Options& options, Command& chosen) {
    CLI::App* const add = addAction(setup, "add", "Adds a module", options);
    add->add_option("--type", options->type, "Its type")->type_name("TYPE")->required();
    addModuleOptions(*add, *options);
    onEdit(*add, options, chosen, addModule);

    CLI::App* const remove = addAction(setup, "remove", "Removes modules", options);
    remove->add_option("MODULE", options->modules, "Rows or names")->required();
    onEdit(*remove, options, chosen, removeModules);
}

void addSetAction(CLI::App& setup, const Options& options, Command& chosen) {
    CLI::App* const set = addAction(setup, "set", "Changes a module", options);
    set->add_option("MODULE", options->module, "Row or name")->required();
    set->add_option("--type", options->type, "Its type; its channels are replaced then")
        ->type_name("TYPE");
    addModuleOptions(*set, *options);
    set->add_option("--sync", options->sync,
                    "How its clock follows the host's: by a fit, or by PPS")
        ->check(CLI::IsMember({"soft", "pps"}));
    set->add_option("--clock-source", options->clockSource, "Whether it leads the measurement")
        ->check(CLI::IsMember({"yes", "no"}));
    onEdit(*set, options, chosen, [set](Session& session, const SetupOptions& wanted) {
        const std::size_t module = findModule(session, wanted.module);
        changeModule(session, module, *set, wanted);
        if (!wanted.sync.empty() || !wanted.clockSource.empty()) {
            setClock(session, module, wanted);
        }
    });
}

void addChannelAction(CLI::App& setup, const Options& options, Command& chosen) {
    CLI::App* const channel = addAction(setup, "channel", "Changes channels of a module", options);
    channel->add_option("MODULE", options->module, "Row or name")->required();
    channel->add_option("INTERFACE", options->interface, "Interface ID, or all")->required();
    channel->add_option("--used", options->used, "Whether its messages are wanted")
        ->check(CLI::IsMember({"yes", "no"}));
    channel->add_option("--name", options->name, "Its name")->type_name("NAME")->check(isUtf8());
    channel->add_option("--color", options->color, "Its colour")->type_name("RRGGBB");
    onEdit(*channel, options, chosen, [channel](Session& session, const SetupOptions& wanted) {
        for (const Channel& found : findChannels(session, wanted)) {
            changeChannel(session.findOutput(found), *channel, wanted);
        }
    });
}

/// As the setup keeps it: a relative path counts from the setup's folder.
std::wstring toDatabasePath(const SetupOptions& options, const std::string& path) {
    namespace fs = std::filesystem;
    const fs::path folder = fs::absolute(options.file).parent_path().lexically_normal();
    const fs::path kept = fs::path(path).is_absolute()
                              ? fs::path(path)
                              : fs::absolute(path).lexically_normal().lexically_proximate(folder);
    return Kestrova::Utils::Kcom::StringHelper::ToWide(kept.string());
}

/// Each must be readable and of the channel's bus.
void setDatabases(Session& session, const SetupOptions& options) {
    if (options.databases.empty() && !options.hasNone) {
        throw UserError("name databases with --db FILE, or take them away with --none");
    }
    const std::vector<Channel> channels = findChannels(session, options);
    std::vector<std::wstring> paths;
    for (const std::string& path : options.databases) {
        const Database database = readDatabase(path);
        printMessages(database.notices);
        for (const Channel& channel : channels) {
            if ((channel.busType == "LIN") != (database.bus == BusType::Lin)) {
                throw UserError(fmt::format("{} is a database of {}, and interface 0x{:X} is {}",
                                            path, database.bus == BusType::Lin ? "LIN" : "CAN",
                                            channel.interfaceId, channel.busType));
            }
        }
        if (std::ranges::find(paths, toDatabasePath(options, path)) != paths.end()) {
            throw UserError(fmt::format("--db {} is named twice", path));
        }
        paths.push_back(toDatabasePath(options, path));
    }
    for (const Channel& channel : channels) {
        session.findOutput(channel).setDatabases(paths);
    }
}

void addDatabaseAction(CLI::App& setup, const Options& options, Command& chosen) {
    CLI::App* const database =
        addAction(setup, "database", "Says by which databases channels are decoded", options);
    database->add_option("MODULE", options->module, "Row or name")->required();
    database->add_option("INTERFACE", options->interface, "Interface ID, or all")->required();
    auto* const files =
        addRepeated(*database, "--db", options->databases, "FILE",
                    "A database (.dbc, .ldf) in place of those that the channels have; may be "
                    "given again. The first that defines an identifier counts")
            ->check(isUtf8());
    database->add_flag("--none", options->hasNone, "They have none from now on")->excludes(files);
    onEdit(*database, options, chosen, setDatabases);
}

/// For all of the channels or for none.
void setBitRates(Session& session, const SetupOptions& options) {
    if ((options.bitRates.nominal == 0) != options.hasNone) {
        throw UserError("name the bit rate with --nominal, or take it away with --none");
    }
    const std::vector<Channel> channels = findChannels(session, options);
    for (const Channel& channel : channels) {
        checkBitRates(options.bitRates, channel);
    }
    for (const Channel& channel : channels) {
        session.findOutput(channel).setBitRates(options.bitRates);
    }
}

void addBitRateAction(CLI::App& setup, const Options& options, Command& chosen) {
    CLI::App* const rates = addAction(
        setup, "bitrate",
        "Says how fast the buses of channels are, from which \"run\" and the desktop work out bus "
        "load: the share of the time for which messages are on the wire, with the stuff bits that "
        "random data has in the mean (one in 30 bits; the worst case is one in 4). More than 8 "
        "bytes are CAN FD with its rate switched, all others classic CAN. LIN without the 40 % "
        "that its nodes may take longer. Error and remote frames aren't in it",
        options);
    rates->add_option("MODULE", options->module, "Row or name")->required();
    rates->add_option("INTERFACE", options->interface, "Interface ID, or all")->required();
    const auto units =
        CLI::AsNumberWithUnit(std::map<std::string, std::uint32_t>{{"k", 1000}, {"M", 1'000'000}},
                              CLI::AsNumberWithUnit::Options(CLI::AsNumberWithUnit::CASE_SENSITIVE |
                                                             CLI::AsNumberWithUnit::UNIT_OPTIONAL),
                              "RATE");
    auto* const nominal = rates
                              ->add_option("--nominal", options->bitRates.nominal,
                                           "Bits a second, of CAN FD those of the arbitration "
                                           "phase: 500000 or 500k")
                              ->transform(units)
                              ->type_name("RATE");
    rates->add_option("--data", options->bitRates.data, "Those of the data phase of CAN FD: 2M")
        ->transform(units)
        ->type_name("RATE")
        ->needs(nominal);
    rates->add_flag("--none", options->hasNone, "That isn't known from now on")->excludes(nominal);
    onEdit(*rates, options, chosen, setBitRates);
}

void addStreamAction(CLI::App& setup, const Options& options, Command& chosen) {
    CLI::App* const stream = addAction(
        setup, "stream",
        "Says where and how \"run\" streams what it measures, in place of what the setup said "
        "before. Of files it keeps the names: a password stays in a file of its own",
        options);
    addStreamOptions(*stream, options->stream);
    stream->remove_option(stream->get_option("--stream"));
    auto* const servers =
        stream->add_option("SERVERS", options->stream.nats.servers,
                           "The NATS brokers: nats://HOST:4222[,HOST...], or tls://");
    stream->add_flag("--none", options->hasNoStream, "It streams nothing")->excludes(servers);
    onChosen(*stream, chosen, [options](StopSignal&) {
        Session::StreamOptions given = options->stream.getGiven();
        if (options->hasNoStream == options->stream.isWanted()) {
            throw UserError("name the brokers, as nats://HOST:4222, or write --none");
        }
        if (!options->hasNoStream) {
            parseStreamSettings(options->stream, "SERVERS");  // refuses what can't be
            given["stream"] = options->stream.nats.servers;
        }
        return edit(*options, [&](Session& session, const SetupOptions&) {
            session.setStreamOptions(given);
        });
    });
}

}  // namespace

void addSetupCommand(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<SetupOptions>();
    CLI::App* const setup = app.add_subcommand("setup", setupAbout);
    setup->footer(setupExamples);
    setup->require_subcommand(1);

    CLI::App* const create = addAction(*setup, "new", "Makes an empty setup", options);
    onChosen(*create, chosen, [options](StopSignal&) { return createSetup(*options); });
    CLI::App* const show = addAction(*setup, "show", "Lists modules and channels", options);
    show->add_flag("--json", options->json, "As JSON");
    onChosen(*show, chosen, [options](StopSignal&) {
        const auto session = openSession(options->plugin, options->file);
        options->json ? showSetupAsJson(*session) : showSetup(*session);
        return ExitCode::Good;
    });
    addEditActions(*setup, options, chosen);
    addSetAction(*setup, options, chosen);
    addChannelAction(*setup, options, chosen);
    addDatabaseAction(*setup, options, chosen);
    addBitRateAction(*setup, options, chosen);
    addStreamAction(*setup, options, chosen);
}

}  // namespace station
