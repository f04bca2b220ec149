#include "simulator/options.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <limits>

#include "simulator/failure.h"

namespace sim {
namespace {

constexpr auto about =
    "Capture modules in software: sends the Ethernet frames of CAN and LIN capture modules on a\n"
    "network interface, or writes them into a capture file.";

constexpr auto footer = R"(Modules:
  --module "TYPE:CONFIGID[,option=value]..."; TYPE is one of
    LIN combo    10 LIN interfaces 0x10, 0x20 .. 0xA0; CM ID 0x30 + CONFIGID
    CAN combo     7 CAN interfaces 0x10, 0x20 .. 0x70; CM ID 0x40 + CONFIGID
    NeoviFire3   19 CAN interfaces 1 to 9 and 11 to 20; CM ID = CONFIGID
  in any mix of upper and lower case. CONFIGID is decimal or, after 0x, hexadecimal; 16 and more is
  the whole CM ID. Options:
    framing=tecmp|asam  tecmp for the combos, asam (ASAM CMP) for NeoviFire3; LIN in tecmp only
    serial=N            100000 for the first module, 100001 for the second, and so on
    channels=N          only the module's first N interfaces; without it all of them
    drift=PPM           how much faster the module's clock runs than the host's
    offset=SECONDS      how far it is ahead at the start
    jump=S@T            it jumps by S seconds T seconds after the start
    jitter=S            each stamp errs by up to S seconds, never going back

Payload:
  Data bytes 0 to 3 are the channel's running number from 0, little-endian (of shorter data its low
  bytes). With --stamp, bytes 4 to 11 of data of 12 bytes and more are the host's CLOCK_MONOTONIC in
  nanoseconds, little-endian, at the moment of sending. All device times are then of that moment too,
  and no longer of the one at which the message was due, and data frames are sent one by one. With
  --write the stamp is UTC, as in the file, when the message is due. Each byte behind is (running
  number + interface ID + position) modulo 256.

Examples:
  cmp-sim --interface veth0 --module "CAN combo:5" --module "LIN combo:2" --duration 5
  cmp-sim --interface veth0 --module "CAN combo:5,channels=1" --rate 0 --per-frame 40 --messages 4000000
  cmp-sim --write can.pcap --module "NeoviFire3:7" --messages 1000 --length 8-64 --json
  cmp-sim --interface veth0 --module "CAN combo:5,drift=50,jump=0.9@5" --length 12 --stamp

Exit codes: 0 good, 1 failure while running, 2 wrong use, 4 not allowed to send.)";

/// What "as fast as it goes" is in a file, whose time doesn't pass by itself.
constexpr std::uint64_t fileRate = 100'000;
constexpr double longestSeconds = 1e9;

/// What CLI11 fills in before it is checked and converted.
struct Raw {
    std::vector<std::string> modules;
    std::string lengths = "8";
    double duration = 0;
    double statusPeriod = 1;
    bool stamp = false;
};

/// A check whose range is in the option's own description. CLI::Range alone lets "nan" pass.
template <typename Number>
CLI::Validator within(Number from, Number to) {
    const auto check = [from, to](const std::string& text) {
        double number = 0;
        if (CLI::detail::lexical_cast(text, number) && std::isnan(number))
            return text + " is no number";
        return CLI::Range(from, to)(text);
    };
    return CLI::Validator(check, "");
}

void declareWhoAndWhere(CLI::App& app, Options& options, Raw& raw) {
    auto* file = app.add_option("--write", options.file,
                                "write a capture file instead; - is the standard output")
                     ->type_name("FILE");
    app.add_option("--interface", options.interface, "network interface to send on")
        ->type_name("IF")
        ->excludes(file);
    app.add_option("--module", raw.modules, "a capture module, see below; repeatable")
        ->type_name("MODULE")
        ->required()
        ->allow_extra_args(false);
}

void declareTraffic(CLI::App& app, TrafficSettings& traffic, Raw& raw) {
    app.add_option("--rate", traffic.rate,
                   "messages per second and channel, up to 10 million; 0: as fast as it goes "
                   "(in a file 100000)")
        ->type_name("N")
        ->capture_default_str()
        ->check(within(0U, 10'000'000U));
    app.add_option("--messages", traffic.messageLimit, "stop after N data messages in all")
        ->type_name("N")
        ->check(within(std::uint64_t{1}, std::numeric_limits<std::uint64_t>::max()));
    app.add_option("--duration", raw.duration, "stop after S seconds; without both: on Ctrl-C")
        ->type_name("S")
        ->check(within(1e-9, longestSeconds));
    app.add_option("--per-frame", traffic.perFrame, "TECMP messages per frame, up to 2000")
        ->type_name("N")
        ->capture_default_str()
        ->check(within(1U, 2000U));
    app.add_option("--length", raw.lengths,
                   "data bytes, N or A-B: the lengths of CAN FD in that range in turn, up to 64; "
                   "LIN takes 1 to 8, ASAM CMP at least 1")
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--bad", traffic.badShare,
                   "share of malformed frames in all frames, up to 0.99; never counted as data")
        ->type_name("SHARE")
        ->capture_default_str()
        ->check(within(0.0, 0.99));
    app.add_option("--status", raw.statusPeriod,
                   "CM status (TECMP: and bus status) every S seconds; 0: at start and end only")
        ->type_name("S")
        ->capture_default_str()
        ->check(within(0.0, longestSeconds));
    app.add_option("--seed", traffic.seed, "for jitter and malformed frames")
        ->type_name("N")
        ->capture_default_str();
    app.add_flag("--stamp", raw.stamp, "put the host's time into payloads, see below");
}

void declareFlags(CLI::App& app, Options& options) {
    app.add_flag("--overwrite", options.overwrite,
                 "overwrite the file of --write if it is there; without it it is refused");
    app.add_flag("--json", options.json, "print what was sent as one JSON object");
    app.add_flag("--force", options.force, "send on a real network interface too");
    app.add_flag("-v,--verbose", options.verbose,
                 "a progress line a second also when standard error is no terminal");
}

void convert(Options& options, const Raw& raw) {
    TrafficSettings& traffic = options.traffic;
    options.modules = parseModules(raw.modules);
    traffic.lengths = LengthRange::parse(raw.lengths);
    if (raw.duration > 0)
        traffic.durationNs = toNs(raw.duration);
    if (raw.stamp)
        traffic.stamp = options.file.empty() ? Stamp::Sending : Stamp::Due;
    traffic.statusPeriodNs = raw.statusPeriod > 0 ? toNs(raw.statusPeriod) : never;
    if (options.interface.empty() && options.file.empty())
        throw Failure(ExitCode::WrongUse, "give --interface or --write, where the frames go");
    if (options.file.empty())
        return;
    const bool endless =
        traffic.durationNs == never && traffic.messageLimit == TrafficSettings().messageLimit;
    if (endless)
        throw Failure(ExitCode::WrongUse,
                      "--write needs an end: give --messages or --duration too");
    if (traffic.rate == 0)
        traffic.rate = fileRate;
}

}  // namespace

ParsedOptions parseOptions(int argc, const char* const* argv) {
    ParsedOptions parsed;
    Raw raw;
    CLI::App app(about, "cmp-sim");
    app.footer(footer);
    app.set_version_flag("--version", "cmp-sim " CMP_VERSION);
    app.get_formatter()->column_width(34);
    declareWhoAndWhere(app, parsed.options, raw);
    declareTraffic(app, parsed.options.traffic, raw);
    declareFlags(app, parsed.options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return {{}, true, app.help()};
    } catch (const CLI::CallForVersion&) {
        return {{}, true, app.version() + "\n"};
    } catch (const CLI::ParseError& error) {
        throw Failure(ExitCode::WrongUse,
                      std::string(error.what()) + "; \"cmp-sim --help\" shows how it is used");
    }
    convert(parsed.options, raw);
    return parsed;
}

}  // namespace sim
