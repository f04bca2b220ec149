#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace station {

// What stations, collectors and any other reader agree on; docs/fleet.md describes it.

inline constexpr const char* defaultStreamName = "CMP";
inline constexpr const char* streamSubjects = "cmp.>";
inline constexpr const char* subjectPrefix = "cmp.";
inline constexpr const char* heartbeatBucket = "cmp-stations";

/// What a heartbeat says, as keys of JSON.
namespace beat {
inline constexpr const char* station = "station";
inline constexpr const char* owner = "owner";  ///< machine, process and its start
inline constexpr const char* host = "host";
inline constexpr const char* session = "session";
inline constexpr const char* time = "time";  ///< ns since 1970
inline constexpr const char* rate = "rate";  ///< messages a second
inline constexpr const char* published = "published";
inline constexpr const char* acknowledged = "acknowledged";
inline constexpr const char* backlogMessages = "backlog_messages";
inline constexpr const char* backlogBytes = "backlog_bytes";
inline constexpr const char* spoolLost = "spool_lost";
inline constexpr const char* lost = "lost";
inline constexpr const char* version = "version";
inline constexpr const char* ended = "ended";
}  // namespace beat

/// Headers of a batch, but for one of a heartbeat.
namespace header {
inline constexpr const char* expectedRevision = "Nats-Expected-Last-Subject-Sequence";
inline constexpr const char* identifier = "Nats-Msg-Id";
inline constexpr const char* station = "Cmp-Station";       ///< token
inline constexpr const char* session = "Cmp-Session";       ///< of the measurement
inline constexpr const char* batch = "Cmp-Batch";           ///< from 1, by subject and session
inline constexpr const char* firstTime = "Cmp-First-Time";  ///< ns since 1970
inline constexpr const char* lastTime = "Cmp-Last-Time";    ///< ns since 1970
inline constexpr const char* messages = "Cmp-Messages";
inline constexpr const char* sentTime = "Cmp-Sent-Time";  ///< ns since 1970
inline constexpr const char* end = "Cmp-End";             ///< "1" in the last of a session
inline constexpr const char* others = "Cmp-Others";       ///< "1" if other sessions aren't over
}  // namespace header

/// What a station is called unless it is named.
std::string nameOfMachine();

/// A name as part of a subject: each byte that isn't a letter or digit of ASCII, '-' or '_' becomes
/// "=XX", and the empty name "=". Different names give different tokens.
std::string toToken(std::string_view name);
/// The name that has this token; none if no name has.
std::optional<std::string> fromToken(std::string_view token);

}  // namespace station
