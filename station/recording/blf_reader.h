#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "station/recording/blf_objects.h"
#include "station/recording/input_file.h"
#include "station/recording/message_reader.h"

namespace station {

/// Reads the messages of a .blf: ours, and what other programs write. CAN of types 1 and 86, CAN FD
/// of 100 and 101, LIN of 11 and 57. Bus errors and remote frames are counted as skipped, as are
/// objects shorter than their type.
class BlfReader : public MessageReader {
  public:
    explicit BlfReader(std::unique_ptr<InputFile> inputFile);

    bool next(RecordedMessage& message) override;
    double getProgress() const override { return objects.getProgress(); }

  private:
    using Bytes = BlfObjects::Bytes;

    bool take(Bytes object, RecordedMessage& message);
    bool takeCan(Bytes content, RecordedMessage& message);
    bool takeCanFd(Bytes content, RecordedMessage& message);
    bool takeCanFd64(Bytes content, RecordedMessage& message);
    bool putCan(RecordedMessage& message, std::size_t channel, std::uint32_t id, std::size_t length,
                Bytes data);
    bool takeLin(Bytes content, const blf::LinPlaces& at, RecordedMessage& message);
    void takeText(Bytes content);
    void takeStart(std::string_view text);
    void takeChannel(std::string_view text);
    bool skip();
    std::size_t placeOf(BusType bus, std::size_t number);
    void name(BusType bus, std::size_t number, std::string_view channelName);

    BlfObjects objects;
    std::int64_t startLocalMs = 0;  ///< the header's, as if it were UTC
    std::int64_t start = 0;         ///< UTC, nanoseconds
    std::uint64_t unusable = 0;     ///< objects that were read and are no message

    static constexpr std::size_t unknown = static_cast<std::size_t>(-1);
    std::array<std::vector<std::size_t>, 2> places;  ///< by bus and number
};

/// Null if it is no .blf. Throws UserError (unreadable).
std::unique_ptr<MessageReader> openBlf(const std::string& path);

}  // namespace station
