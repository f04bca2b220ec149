#include "station/fleet/fleet_status.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "station/nats/stream_names.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr double perSecond = 1e9;
/// A heartbeat is that old by itself, on a busy network.
constexpr double usualDelay = 5.0;
constexpr std::size_t longestText = 200;  // of what a station may say as it likes

std::uint64_t countOf(const nlohmann::json& json, const char* name) {
    const auto found = json.find(name);
    return found != json.end() && found->is_number_unsigned() ? found->get<std::uint64_t>() : 0;
}

double numberOf(const nlohmann::json& json, const char* name) {
    const auto found = json.find(name);
    const double number = found != json.end() && found->is_number() ? found->get<double>() : 0.0;
    return std::isfinite(number) ? number : 0.0;
}

std::string textOf(const nlohmann::json& json, const char* name) {
    const auto found = json.find(name);
    const std::string text =
        found != json.end() && found->is_string() ? found->get<std::string>() : std::string();
    return text.size() > longestText ? text.substr(0, longestText) + "..." : text;
}

StationStatus readOne(const Heartbeat& heartbeat, std::int64_t now) {
    StationStatus status;
    // The key is what the broker lets a station write; what it calls itself may be anything.
    status.station = fromToken(heartbeat.token).value_or(heartbeat.token);
    status.age = std::max(0.0, static_cast<double>(now) - static_cast<double>(heartbeat.arrived)) /
                 perSecond;
    const auto json = nlohmann::json::parse(heartbeat.text, nullptr, false);
    if (!json.is_object()) {
        status.fault = "what it says of itself is no JSON object";
        return status;
    }
    status.session = textOf(json, beat::session);
    status.version = textOf(json, beat::version);
    const double offset =
        (numberOf(json, beat::time) - static_cast<double>(heartbeat.arrived)) / perSecond;
    status.clockOffset = std::abs(offset) > usualDelay ? offset : 0.0;
    status.rate = numberOf(json, beat::rate);
    status.backlogMessages = countOf(json, beat::backlogMessages);
    status.backlogBytes = countOf(json, beat::backlogBytes);
    status.spoolLost = countOf(json, beat::spoolLost);
    status.lost = countOf(json, beat::lost);
    const auto ended = json.find(beat::ended);
    status.isEnded = ended != json.end() && ended->is_boolean() && ended->get<bool>();
    return status;
}

std::string ageText(double seconds) {
    constexpr double minute = 60.0;
    constexpr double hour = 3600.0;
    constexpr double day = 86400.0;
    return seconds < 2 * minute ? fmt::format("{:.0f} s", seconds)
           : seconds < 2 * hour ? fmt::format("{:.0f} min", seconds / minute)
           : seconds < 2 * day  ? fmt::format("{:.0f} h", seconds / hour)
                                : fmt::format("{:.0f} d", seconds / day);
}

std::string noteOf(const StationStatus& station) {
    std::string note = station.fault;
    const auto add = [&](const std::string& text) { note += (note.empty() ? "" : ", ") + text; };
    if (station.isEnded || station.isStale()) {
        add(station.isEnded ? "ended" : "stale");
    }
    if (station.clockOffset != 0.0) {
        add(fmt::format("clock {} {}", ageText(std::abs(station.clockOffset)),
                        station.clockOffset > 0.0 ? "ahead" : "behind"));
    }
    return note;
}

}  // namespace

std::vector<StationStatus> readStatus(const std::vector<Heartbeat>& heartbeats, std::int64_t now) {
    std::vector<StationStatus> stations;
    stations.reserve(heartbeats.size());
    for (const Heartbeat& heartbeat : heartbeats) {
        stations.push_back(readOne(heartbeat, now));
    }
    std::ranges::sort(stations, {}, &StationStatus::station);
    return stations;
}

std::string toJson(const std::vector<StationStatus>& stations) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const StationStatus& station : stations) {
        nlohmann::ordered_json entry = {{"station", station.station},
                                        {"session", station.session},
                                        {"lastSeenSeconds", station.age},
                                        {"stale", station.isStale()},
                                        {"ended", station.isEnded},
                                        {"rate", station.rate},
                                        {"backlogMessages", station.backlogMessages},
                                        {"backlogBytes", station.backlogBytes},
                                        {"spoolLost", station.spoolLost},
                                        {"lost", station.lost},
                                        {"clockOffsetSeconds", station.clockOffset},
                                        {"version", station.version}};
        if (!station.fault.empty()) {
            entry["error"] = station.fault;
        }
        list.push_back(std::move(entry));
    }
    return toText({{"stations", std::move(list)}});
}

std::vector<std::string> toTable(const std::vector<StationStatus>& stations) {
    std::size_t widest = 7;
    for (const StationStatus& station : stations) {
        widest = std::max(widest, printable(station.station).size());
    }
    std::vector<std::string> lines = {
        fmt::format("{:<{}}  {:<22} {:>9} {:>10} {:>10} {:>9} {:>9} {:>9}", "station", widest,
                    "session", "last seen", "messages/s", "backlog", "MB", "spool lost", "lost")};
    for (const StationStatus& station : stations) {
        const std::string note = noteOf(station);
        lines.push_back(fmt::format(
            "{:<{}}  {:<22} {:>9} {:>10.0f} {:>10} {:>9.1f} {:>10} {:>9}{}",
            printable(station.station), widest, printable(station.session), ageText(station.age),
            station.isEnded || station.isStale() ? 0.0 : station.rate, station.backlogMessages,
            static_cast<double>(station.backlogBytes) / 1e6, station.spoolLost, station.lost,
            note.empty() ? "" : "  " + note));
    }
    return lines;
}

}  // namespace station
