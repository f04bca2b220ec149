#include <cstdint>
#include <string>

#include "fuzz/memory_file.h"
#include "fuzz/require.h"
#include "host/bus_record.h"
#include "station/recording/message_reader.h"

// A recording in any format whose messages can be read. Each message is one that a channel of the
// bus can have.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace station;
    const MemoryFile file(data, size);
    const auto reader = openMessages(file.path());
    if (!reader) {
        return 0;
    }
    std::uint64_t count = 0;
    RecordedMessage message;
    while (reader->next(message)) {
        require(message.channel < reader->getChannels().size(), "a message is of no channel");
        const bool isCan = reader->getChannels()[message.channel].bus == BusType::Can;
        require(message.size == (isCan ? sizeof(CanFrame) : sizeof(LinFrame)), "a record's size");
        const std::size_t length =
            message.record[isCan ? offsetof(CanFrame, length) : offsetof(LinFrame, length)];
        require(length <= (isCan ? CanFrame::mostData : LinFrame::mostData), "a message's length");
        require(message.utcNanoseconds >= 0, "a message's time");
        ++count;
    }
    require(!reader->next(message), "reading ended and went on");
    require(reader->getProgress() >= 0.0 && reader->getProgress() <= 1.0, "the progress");
    constexpr std::size_t mostExpansion = 1032 * 1032;  // of a byte: by zstd, and then by zlib
    require(count + reader->getSkipped() <= size * mostExpansion,
            "more records than the file has bytes");
    return 0;
}
