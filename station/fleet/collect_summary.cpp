#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "station/fleet/collector.h"
#include "station/terminal_text.h"

namespace station {

std::uint64_t CollectSummary::countMissing() const {
    std::uint64_t missing = 0;
    for (const Session& session : sessions) {
        missing += session.missing;
    }
    return missing;
}

bool CollectSummary::hasLost() const {
    return unusable != 0 || differing != 0 || !writeError.empty() || countMissing() != 0 ||
           std::ranges::any_of(sessions,
                               [](const Session& session) { return !session.error.empty(); });
}

std::string toJson(const CollectSummary& summary) {
    nlohmann::ordered_json sessions = nlohmann::ordered_json::array();
    for (const auto& session : summary.sessions) {
        nlohmann::ordered_json entry = {
            {"station", session.station},        {"session", session.session},
            {"batches", session.batches},        {"messages", session.messages},
            {"missingBatches", session.missing}, {"finished", session.isFinished},
            {"recordings", session.recordings}};
        if (!session.missingText.empty()) {
            entry["missing"] = session.missingText;
        }
        if (!session.error.empty()) {
            entry["error"] = session.error;
        }
        sessions.push_back(std::move(entry));
    }
    nlohmann::ordered_json json = {
        {"batches", summary.batches},       {"messages", summary.messages},
        {"bytes", summary.bytes},           {"alreadyThere", summary.alreadyThere},
        {"passedOver", summary.passedOver}, {"unusable", summary.unusable},
        {"differing", summary.differing},   {"missingBatches", summary.countMissing()},
        {"diskFull", summary.isDiskFull},   {"sessions", std::move(sessions)}};
    if (!summary.writeError.empty()) {
        json["writeError"] = summary.writeError;
    }
    return toText(json);
}

std::vector<std::string> toTable(const CollectSummary& summary) {
    std::size_t widest = 7;
    for (const auto& session : summary.sessions) {
        widest = std::max(widest, printable(session.station).size());
    }
    std::vector<std::string> lines = {fmt::format("{:<{}}  {:<22} {:>12} {:>9} {:>8}", "station",
                                                  widest, "session", "messages", "batches",
                                                  "missing")};
    for (const auto& session : summary.sessions) {
        lines.push_back(fmt::format("{:<{}}  {:<22} {:>12} {:>9} {:>8}{}",
                                    printable(session.station), widest, printable(session.session),
                                    session.messages, session.batches, session.missing,
                                    session.isFinished ? "" : "  not ended"));
    }
    lines.push_back(fmt::format(
        "{} batches with {} messages collected, {:.1f} MB{}{}", summary.batches, summary.messages,
        static_cast<double>(summary.bytes) / 1e6,
        summary.unusable == 0
            ? ""
            : fmt::format("; {} messages of the stream are no batches", summary.unusable),
        summary.differing == 0
            ? ""
            : fmt::format("; {} batches came again with other contents", summary.differing)));
    return lines;
}

std::string toProgressLine(const CollectSummary& summary) {
    return fmt::format(
        "{} batches, {} messages, {:.1f} MB, {} sessions; {} batches waiting{}{}", summary.batches,
        summary.messages, static_cast<double>(summary.bytes) / 1e6, summary.sessions.size(),
        summary.waiting,
        summary.countMissing() == 0 ? "" : fmt::format(", {} missing", summary.countMissing()),
        summary.isDiskFull           ? ", disk full"
        : summary.writeError.empty() ? ""
                                     : ", can't be written");
}

}  // namespace station
