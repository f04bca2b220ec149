#pragma once

#include <cstdint>
#include <string>

/// A capture file of TECMP frames with CAN messages, for benchmarks.
struct Traffic {
    std::uint32_t modules = 1;  ///< "NeoviFire3" with CM IDs from 1 up, frame by frame in turn
    std::uint32_t messagesPerFrame = 1;
    std::uint32_t messages = 0;

    static constexpr std::uint32_t interfaces = 8;  ///< of each module, message by message in turn
    static constexpr std::uint32_t dataBytes = 8;
};

/// Writes the traffic into a .pcap file. Throws `std::runtime_error`.
void writeTraffic(const std::string& path, const Traffic& traffic);
