#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "station/recording/bus_record.h"

namespace station {

// The texts of the socketcand protocol, as far as raw mode needs them.

/// Separates a message from what follows, and is in no other text.
inline constexpr char endOfFrameText = '\n';

/// Appends a message as clients read it:
///
///     < frame 1A2 1700000000.123456 DEADBEEF >            standard identifier, 3 digits
///     < frame 18FF0010 1700000000.123456 DEADBEEF >       extended identifier, 8 digits
///     < fdframe 1A2 00 1700000000.123456 0011... >        over 8 bytes: CAN FD, with its flags
///
/// Fractions of a second, lengths and flags are those of a candump log. `endOfFrameText` is behind
/// it: python-can passes over one character there, whatever it is.
void appendFrameText(std::string& text, std::int64_t utcNanoseconds, const CanRecord& record);

/// A client's commands, "< word argument... >", out of what it sends bit by bit.
class CommandReader {
  public:
    /// No command needs more, and no client is given more room.
    static constexpr std::size_t longest = 256;

    /// All commands in it are to be taken before the next call.
    void add(std::string_view bytes) { text += bytes; }
    /// The next command with its words one blank apart, without the brackets. Nothing: none is
    /// complete.
    std::optional<std::string> take();
    /// What came is no command, or one of endless length: there is no use in reading on.
    bool isBroken() const { return broken; }

  private:
    std::string text;  ///< what isn't taken
    bool broken = false;
};

}  // namespace station
