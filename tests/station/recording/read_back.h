#pragma once

#include "host/bus_record.h"
#include "station/errors.h"
#include "station/recording/message_reader.h"

#include "tests/support/test.h"

namespace station {

/// "123x#abcd" for a `CanFrame`, with "x" for an extended identifier, and "11#12 5a" for a
/// `LinFrame`, with its checksum.
inline std::string textOf(BusType bus, const void* record) {
    CanFrame can;
    LinFrame lin;
    const bool isCan = bus == BusType::Can;
    std::memcpy(isCan ? static_cast<void*>(&can) : &lin, record, isCan ? sizeof can : sizeof lin);
    std::ostringstream text;
    text << std::hex << (isCan ? can.id : lin.id) << (can.extended != 0 ? "x" : "") << '#';
    for (int i = 0; i < (isCan ? can.length : lin.length); ++i) {
        const int byte = isCan ? can.data[i] : lin.data[i];
        text << byte / 16 << byte % 16;
    }
    if (!isCan) {
        text << ' ' << static_cast<int>(lin.checksum);
    }
    return text.str();
}

inline std::string textOf(const ChannelDescription& channel, std::int64_t time,
                          const void* record) {
    return (channel.bus == BusType::Can ? "CAN " : "LIN ") + channel.name + ' ' +
           std::to_string(time) + ' ' + textOf(channel.bus, record);
}

struct Contents {
    bool isNull = false;  ///< nothing reads its messages
    std::vector<std::string> messages;
    std::uint64_t skipped = 0;
    std::string error;
};

inline Contents readBack(const std::string& path) {
    std::unique_ptr<MessageReader> reader;
    try {
        reader = openMessages(path);
    } catch (const UserError& error) {
        EXPECT_EQ(error.getCode(), ExitCode::Unreadable);
    }
    Contents contents{!reader, {}, 0, ""};
    if (reader) {
        RecordedMessage message;
        while (reader->next(message)) {
            const ChannelDescription& channel = reader->getChannels().at(message.channel);
            EXPECT_EQ(message.size,
                      channel.bus == BusType::Can ? sizeof(CanFrame) : sizeof(LinFrame));
            contents.messages.push_back(
                textOf(channel, message.utcNanoseconds, message.record.data()));
        }
        EXPECT_FALSE(reader->next(message));
        contents.skipped = reader->getSkipped();
        contents.error = reader->getErrorText();
    }
    return contents;
}

}  // namespace station
