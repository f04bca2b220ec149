#include "host/bus_record.h"
#include "station/errors.h"
#include "station/recording/message_filter.h"
#include "station/recording/message_reader.h"
#include "station/recording/recording.h"

#include "tests/support/temporary_folder.h"

namespace station {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr std::int64_t start = 1'700'000'000'123'456'789;

/// What one format keeps of a message.
struct Format {
    const char* ending;
    std::int64_t resolution;  ///< nanoseconds
    bool hasOddLengths;       ///< of CAN FD, that no frame has
};

constexpr Format formats[] = {
    {".pcapng", 1, true}, {".log", 1000, false}, {".asc", 1000, false}, {".csv", 1, true}};

struct Message {
    std::size_t channel = 0;
    std::int64_t time = 0;
    std::vector<std::uint8_t> record;

    bool operator==(const Message&) const = default;
};

void PrintTo(const Message& message, std::ostream* out) {
    *out << message.channel << " at " << message.time << ' '
         << testing::PrintToString(message.record);
}

template <class Frame>
Message messageOf(std::size_t channel, std::int64_t time, const Frame& frame) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&frame);
    return {channel, time, {bytes, bytes + sizeof frame}};
}

Message can(std::size_t channel, std::int64_t time, std::uint32_t id, bool extended,
            std::size_t length) {
    CanFrame frame;
    frame.id = id;
    frame.extended = extended ? 1 : 0;
    frame.length = static_cast<std::uint8_t>(length);
    for (std::size_t i = 0; i < length; ++i) {
        frame.data[i] = static_cast<std::uint8_t>(0xF0 + i + length);
    }
    return messageOf(channel, time, frame);
}

Message lin(std::size_t channel, std::int64_t time, std::uint8_t id, std::size_t length,
            std::uint8_t checksum) {
    LinFrame frame;
    frame.id = id;
    frame.length = static_cast<std::uint8_t>(length);
    frame.checksum = checksum;
    for (std::size_t i = 0; i < length; ++i) {
        frame.data[i] = static_cast<std::uint8_t>(0x90 + i);
    }
    return messageOf(channel, time, frame);
}

struct Contents {
    std::vector<ChannelDescription> channels;
    std::vector<Message> messages;
    std::uint64_t skipped = 0;
    std::string error;
};

Contents read(const std::string& path) {
    Contents contents;
    const auto reader = openMessages(path);
    if (!reader) {
        contents.error = "null";
        return contents;
    }
    RecordedMessage message;
    while (reader->next(message)) {
        const auto* const bytes = message.record.data();
        contents.messages.push_back(
            {message.channel, message.utcNanoseconds, {bytes, bytes + message.size}});
    }
    EXPECT_FALSE(reader->next(message));
    EXPECT_LE(reader->getProgress(), 1.0);
    contents.channels = reader->getChannels();
    contents.skipped = reader->getSkipped();
    contents.error = reader->getErrorText();
    return contents;
}

class Formats : public testing::TestWithParam<Format> {
  protected:
    const std::vector<ChannelDescription> channels = {
        {"Front", BusType::Can},
        {"D\xC3\xB6\"ors\", \\n 1\r\n2", BusType::Lin},
        {"Rear", BusType::Can}};
    const TemporaryFolder folder;
    const std::string path = folder.path() / (std::string("a") + GetParam().ending);

    void put(const std::string& bytes) const { std::ofstream(path, std::ios::binary) << bytes; }
    /// Records what the format can hold; returns what is to be read, its channels numbered as a
    /// reader meets them.
    std::vector<Message> record(const std::vector<Message>& messages) {
        const auto recording = openRecording(path);
        std::vector<std::size_t> handles;
        for (const ChannelDescription& channel : channels) {
            handles.push_back(recording->accepts(channel.bus) ? recording->addChannel(channel)
                                                              : handles.size());
        }
        std::vector<Message> expected;
        for (const Message& message : messages) {
            if (recording->accepts(channels[message.channel].bus)) {
                recording->write(handles[message.channel], message.time, message.record.data(),
                                 message.record.size());
                expected.push_back(message);
                expected.back().time -= message.time % GetParam().resolution;
            }
        }
        EXPECT_TRUE(recording->close());
        EXPECT_EQ(recording->recordsLost(), 0U);
        return expected;
    }
    /// With the names of channels, which readers number as they meet them.
    void expectSame(const std::vector<Message>& expected, const Contents& there) const {
        ASSERT_EQ(there.messages.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            Message message = there.messages[i];
            const ChannelDescription& channel = there.channels.at(message.channel);
            EXPECT_EQ(channel.bus, channels[expected[i].channel].bus);
            EXPECT_EQ(channel.name, channels[expected[i].channel].name);
            message.channel = expected[i].channel;
            EXPECT_EQ(message, expected[i]);
        }
    }
};

TEST_P(Formats, EveryKindOfMessageIsReadAsItWasWritten) {
    std::vector<Message> messages;
    std::int64_t time = start;
    for (const std::size_t length : {0U, 1U, 8U, 12U, 20U, 48U, 64U}) {
        messages.push_back(can(0, time += 1'001, 0x7FF, false, length));
        messages.push_back(can(2, time += 1, 0x7, true, length));
        messages.push_back(can(2, time -= 3'000'000'000, 0x1FFFFFFF, true, length));
        time += 90'000'000'000'000;  // over midnight
    }
    for (std::size_t length = 0; length <= 8; ++length) {
        const auto checksum = static_cast<std::uint8_t>(0xE1 + length);
        messages.push_back(
            lin(1, ++time, static_cast<std::uint8_t>(0x3F - length), length, checksum));
    }
    messages.push_back(can(0, 0, 0, false, 0));
    const auto expected = record(messages);
    const Contents there = read(path);
    expectSame(expected, there);
    EXPECT_EQ(there.error, "");
    EXPECT_EQ(there.skipped, 0U);

    std::filesystem::remove(path);
    std::vector<Message> filled = record({can(0, start, 1, false, 21)});
    if (!GetParam().hasOddLengths) {
        filled[0].record[offsetof(CanFrame, length)] = 24;
    }
    expectSame(filled, read(path));
}

TEST_P(Formats, TornAnywhereItIsReadUpToItsLastWholeRecord) {
    const auto expected =
        record({can(0, start, 0x123, false, 3), lin(1, start + 1'000, 0x11, 2, 0x12),
                can(0, start + 5'000, 0x123, true, 12), can(2, start + 9'000, 0x123, true, 0)});
    const std::string whole = contentOf(path);
    std::size_t readBefore = 0;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        put(whole.substr(0, size));
        const Contents there = read(path);
        ASSERT_GE(there.messages.size(), readBefore) << size;
        readBefore = there.messages.size();
        expectSame({expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(readBefore)},
                   there);
        if (GetParam().ending != std::string(".pcapng") && size > 0) {
            const std::size_t left = size - 1 - whole.rfind('\n', size - 1);
            // What stands behind a line break that is quoted isn't read without the rest either.
            if (left == 0 && there.error.empty()) {
                continue;
            }
            EXPECT_THAT(there.error, HasSubstr(" bytes of it were left")) << size;
        }
    }
    EXPECT_EQ(readBefore, expected.size());
}

void setZone(const char* zone) {
    ASSERT_EQ(::setenv("TZ", zone, 1), 0);
    ::tzset();
}

TEST(AscRecordingTest, LinesAreThoseOfTheFormatAndTimesDontHangOnTheReadersZone) {
    const TemporaryFolder folder;
    const std::string path = folder.path() / "a.asc";
    setZone("XYZ-5:30");
    const auto recording = openRecording(path);
    for (const auto& channel : {ChannelDescription{"Front", BusType::Can},
                                {"A\\\n", BusType::Lin},
                                {"Rear", BusType::Lin}}) {
        recording->addChannel(channel);
    }
    for (const Message& message :
         {can(0, start, 0x1A2, true, 2), can(0, start, 0x1A2, false, 9),
          lin(1, start, 0x22, 1, 0x6F), lin(2, start - 2'000'000'000, 0x22, 2, 0x01)}) {
        recording->write(message.channel, message.time, message.record.data(),
                         message.record.size());
    }
    recording->close();
    setZone("XYZ+7");
    EXPECT_EQ(read(path).messages.at(0).time, start - 789);
    ::unsetenv("TZ");
    ::tzset();
    EXPECT_EQ(contentOf(path), R"(date Wed Nov 15 03:43:19.000 2023
base hex  timestamps absolute
internal events logged
Begin Triggerblock Wed Nov 15 03:43:19.000 2023
// start 1699999999000000000 ns UTC, zone UTC+05:30
// channel CAN 1 Front
// channel LIN 1 A\\\n
// channel LIN 2 Rear
   0.000000 Start of measurement
   1.123456 1  1A2x            Rx   d 2 F2 F3
   1.123456 CANFD   1 Rx   1A2                                        0 0 9 12 F9 FA FB FC FD FE FF 00 01 00 00 00        0    0     1000        0        0        0        0        0
   1.123456 Li 22              Rx     1 90  checksum = 6F   header time =   0, full time =   0  CSM = classic
End TriggerBlock
Begin Triggerblock Wed Nov 15 03:43:17.000 2023
// start 1699999997000000000 ns UTC, zone UTC+05:30
   0.000000 Start of measurement
   1.123456 L2 22              Rx     2 90 91  checksum = 01   header time =   0, full time =   0
End TriggerBlock
)");
}

INSTANTIATE_TEST_SUITE_P(All, Formats, testing::ValuesIn(formats),
                         [](const auto& entry) { return std::string(entry.param.ending + 1); });

}  // namespace
}  // namespace station
