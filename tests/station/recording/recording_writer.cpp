#include <array>
#include <cstdint>
#include <iostream>
#include <string>

#include "station/recording/recording.h"

/// recording_writer FILE [can:NAME|lin:NAME]...
/// Records what comes in on standard input, so that the caller alone knows what is expected:
/// channel (4 bytes), size (4 bytes), time (8 bytes) and the record, in host byte order. A size of
/// 0 flushes, says so on standard output, and waits.
int main(int argc, char** argv) {
    const auto recording = station::openRecording(argc > 1 ? argv[1] : "");
    for (int i = 2; i < argc; ++i) {
        const std::string argument = argv[i];
        const auto bus = argument[0] == 'c' ? station::BusType::Can : station::BusType::Lin;
        recording->addChannel({argument.substr(4), bus});
    }
    std::array<std::uint32_t, 2> channelAndSize{};
    std::int64_t time = 0;
    std::array<char, 72> record{};
    while (std::cin.read(reinterpret_cast<char*>(channelAndSize.data()), 8) &&
           std::cin.read(reinterpret_cast<char*>(&time), 8)) {
        const auto [channel, size] = channelAndSize;
        if (size == 0) {
            recording->flush();
            std::cout << "flushed" << std::endl;
        } else if (size <= record.size() && std::cin.read(record.data(), size)) {
            recording->write(channel, time, record.data(), size);
        }
    }
    return recording->close() && recording->recordsLost() == 0 ? 0 : 1;
}
