#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "station/recording/recording.h"
#include "station/stream/spool.h"

namespace station {

/// What the parts of one measurement in a spool have in common. Used on the thread that records.
struct SpoolSession {
    std::string identifier;
    std::string stationToken;
    bool isByChannel = false;  ///< a subject for each interface of a module, not one for all
    std::size_t batchBytes = 0;
    std::chrono::milliseconds batchAge{};
    std::int64_t latestTime = 0;  ///< of a message

    /// Each batch begins with the interfaces of all channels that a message came of before, in the
    /// same order: readers that take a file of batches for one section get the names right too.
    struct Subject {
        std::uint64_t batches = 0;
        std::vector<std::uint8_t> interfaces = {};  ///< their blocks
        std::uint32_t interfaceCount = 0;
    };
    std::map<std::string, Subject> subjects = {};               ///< by name
    std::uint64_t lastPart = 0;                                 ///< that has batches; 0: none
    std::vector<std::optional<std::uint32_t>> interfaces = {};  ///< by channel

    std::string subjectOf(const ChannelDescription& channel) const;
};

/// A part of a spool as a recording: messages are put together to batches, and a batch is written
/// at once when it is large or, at a flush, old enough.
///
/// The session's last part ends with a batch for each subject that says so.
class SpoolPart final : public Recording {
  public:
    SpoolPart(const std::string& path, std::shared_ptr<Spool> target,
              std::shared_ptr<SpoolSession> measurement);
    ~SpoolPart() override;

    const char* getFormatName() const override { return "stream"; }
    bool accepts(BusType bus) const override { return bus != BusType::Ethernet; }
    std::size_t addChannel(const ChannelDescription& channel) override;
    void write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
               std::size_t size) override;

  protected:
    void writePending() override;
    void complete() override;

  private:
    struct Channel {
        BusType bus;
        std::size_t subject;
        std::vector<std::uint8_t> description;  ///< its interface block
    };
    /// The batch of a subject that is being filled.
    struct Subject {
        std::string name;
        SpoolSession::Subject* common;
        std::size_t headerRoom;           ///< in front of the packets
        std::vector<std::uint8_t> bytes;  ///< empty until the first message
        std::size_t used = 0;
        std::vector<std::uint32_t> channels = {};  ///< of each message
        std::int64_t firstTime = 0;
        std::int64_t lastTime = 0;
        std::chrono::steady_clock::time_point begun = {};
    };

    void begin(Subject& subject, std::int64_t time);
    void end(Subject& subject, bool isLastOfSession);

    const std::shared_ptr<Spool> spool;
    const std::shared_ptr<SpoolSession> session;
    const std::uint64_t partBefore;
    std::vector<Channel> channels;
    std::vector<Subject> subjects;
};

}  // namespace station
