#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "station/recording/recording.h"

namespace station {

// The blocks of a .pcapng as bytes, little-endian throughout but for the CAN identifier, which its
// link type wants big-endian. Which blocks make up a recording is with PcapngRecording.

constexpr std::uint64_t unknownLength = 0xFFFFFFFFFFFFFFFF;

/// A section, whose blocks are `length` bytes behind this one: unless that is known, the section
/// ends with the file. The comment is ASCII; empty for none.
std::vector<std::uint8_t> makeSectionHeader(const std::string& comment,
                                            std::uint64_t length = unknownLength);

/// A section's header whose first option is a comment.
struct CommentedSection {
    std::size_t size;          ///< of the header
    std::uint64_t length;      ///< of what is behind it, or `unknownLength`
    std::string_view comment;  ///< within the bytes that were read
};
/// That at the beginning of `bytes`, little-endian; none if there is no whole one.
std::optional<CommentedSection> readCommentedSection(std::span<const std::uint8_t> bytes);

/// An interface for the packets of a channel.
std::vector<std::uint8_t> makeInterfaceDescription(const ChannelDescription& channel);

/// At the end of a channel: how many of its messages came for this file, and how many of them were
/// lost. Each line of `lines` is a comment.
std::vector<std::uint8_t> makeInterfaceStatistics(std::size_t interface, std::uint64_t time,
                                                  const AppendFile::Counts& counts,
                                                  const std::string& lines);

/// Bytes that the packet block of a record takes at most; 0 if that is none of the bus.
std::size_t longestPacketBlock(BusType bus, std::size_t recordSize);

/// Puts the packet block of a record into `room`, which has `longestPacketBlock` bytes, and returns
/// one behind its end. A time before 1970 counts as 0.
std::uint8_t* putPacketBlock(std::uint8_t* room, BusType bus, std::size_t interface,
                             std::int64_t utcNanoseconds, const void* record, std::size_t size);

}  // namespace station
