#include "station/recording/recording.h"

#include <regex>

#include "tests/station/recording/read_back.h"
#include "tests/support/temporary_folder.h"

namespace station::every_format {
namespace {

using testing::HasSubstr;

constexpr std::int64_t start = 1'700'000'000'123'456'789;

/// What one format keeps of a message.
struct Format {
    const char* ending;
    std::int64_t resolution;  ///< nanoseconds
    bool hasOddLengths;       ///< of CAN FD, that no frame has
    bool isText = false;
    bool hasEarlyTimes = true;  ///< long before the first message
    bool hasOrigin = false;     ///< where it can be seen in the file
};

void PrintTo(const Format& format, std::ostream* out) {
    *out << format.ending;
}

constexpr Format formats[] = {
    {".pcapng", 1, true, false, true, true}, {".blf", 1, true, false, false},
    {".mf4", 1, true, false, true, true},    {".log", 1000, false, true},
    {".asc", 1000, false, true, true, true}, {".csv", 1, true, true}};

struct Message {
    std::size_t channel = 0;
    std::int64_t time = 0;
    std::vector<std::uint8_t> record;
};

template <class Frame>
Message messageOf(std::size_t channel, std::int64_t time, Frame frame, std::size_t length) {
    frame.length = static_cast<std::uint8_t>(length);
    for (std::size_t i = 0; i < length; ++i) {
        frame.data[i] = static_cast<std::uint8_t>(0xF0 + i + length);
    }
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&frame);
    return {channel, time, {bytes, bytes + sizeof frame}};
}

Message can(std::size_t channel, std::int64_t time, std::uint32_t id, bool extended,
            std::size_t length) {
    CanFrame frame;
    frame.id = id;
    frame.extended = extended ? 1 : 0;
    return messageOf(channel, time, frame, length);
}

Message lin(std::size_t channel, std::int64_t time, std::uint8_t id, std::size_t length,
            std::uint8_t checksum) {
    LinFrame frame;
    frame.id = id;
    frame.checksum = checksum;
    return messageOf(channel, time, frame, length);
}

/// The texts of `readBack` for what the format can hold of them.
std::vector<std::string> record(const std::string& path, std::int64_t resolution,
                                const std::vector<Message>& messages) {
    const ChannelDescription channels[] = {{"Front", BusType::Can},
                                           {"D\xC3\xB6\"ors\", \\n 1\r\n2", BusType::Lin},
                                           {"Rear", BusType::Can}};
    const auto recording = openRecording(path, true, "session <2>");
    std::map<std::size_t, std::size_t> handles;
    for (std::size_t i = 0; i < std::size(channels); ++i) {
        if (recording->accepts(channels[i].bus)) {
            handles[i] = recording->addChannel(channels[i]);
        }
    }
    std::vector<std::string> expected;
    for (const auto& [channel, time, bytes] : messages) {
        if (handles.contains(channel)) {
            recording->write(handles[channel], time, bytes.data(), bytes.size());
            expected.push_back(textOf(channels[channel], time - time % resolution, bytes.data()));
        }
    }
    EXPECT_TRUE(recording->close());
    EXPECT_EQ(recording->getRecordsLost(), 0U);
    return expected;
}

class Formats : public testing::TestWithParam<Format> {
  protected:
    std::vector<std::string> recordAll(const std::vector<Message>& messages) const {
        return record(path, GetParam().resolution, messages);
    }

    const TemporaryFolder folder;
    const std::string path = folder.path() / (std::string("a") + GetParam().ending);
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
    if (GetParam().hasEarlyTimes) {
        messages.push_back(can(0, 0, 0, false, 0));
    }
    const auto expected = recordAll(messages);
    const Contents there = readBack(path);
    EXPECT_EQ(there.messages, expected);
    EXPECT_EQ(there.error, "");
    EXPECT_EQ(std::regex_search(contentOf(path), std::regex("session (<|&lt;)2(>|&gt;)")),
              GetParam().hasOrigin);
    EXPECT_EQ(there.skipped, 0U);
    std::vector<std::string> filled = recordAll({can(0, start, 1, false, 21)});
    filled[0] += GetParam().hasOddLengths ? "" : "000000";
    EXPECT_EQ(readBack(path).messages, filled);
}

TEST_P(Formats, TornAnywhereItIsReadUpToItsLastWholeRecord) {
    auto expected =
        recordAll({can(0, start, 0x123, false, 3), lin(1, start + 1'000, 0x11, 2, 0x12),
                   can(0, start + 5'000, 0x123, true, 12), can(2, start + 9'000, 0x123, true, 0)});
    const std::string whole = contentOf(path);
    const std::size_t step = 1 + whole.size() / 2000;
    for (std::size_t cut = 0; cut <= whole.size(); cut += step) {
        const std::size_t size = whole.size() - cut;
        std::ofstream(path, std::ios::binary) << whole.substr(0, size);
        const Contents there = readBack(path);
        ASSERT_LE(there.messages.size(), expected.size()) << size;
        expected.resize(there.messages.size());
        EXPECT_EQ(there.messages, expected);
        // A line break may be in quotation marks; then the rest of the record is missing too.
        if (GetParam().isText && size > 0 && (whole[size - 1] != '\n' || !there.error.empty())) {
            EXPECT_THAT(there.error, HasSubstr(" bytes of it were left")) << size;
        }
        ASSERT_TRUE(cut != 0 || expected.size() >= 3) << there.error;
    }
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
    for (const auto& [channel, time, bytes] :
         {can(0, start, 0x1A2, true, 2), can(0, start, 0x1A2, false, 9),
          lin(1, start, 0x22, 1, 0x0E), lin(2, start - 2'000'000'000, 0x22, 2, 0x01)}) {
        recording->write(channel, time, bytes.data(), bytes.size());
    }
    recording->close();
    setZone("XYZ+7");
    EXPECT_EQ(readBack(path).messages.at(0), "CAN Front 1700000000123456000 1a2x#f2f3");
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
   1.123456 Li 22              Rx     1 F1  checksum = 0E   header time =   0, full time =   0  CSM = classic
End TriggerBlock
Begin Triggerblock Wed Nov 15 03:43:17.000 2023
// start 1699999997000000000 ns UTC, zone UTC+05:30
   0.000000 Start of measurement
   1.123456 L2 22              Rx     2 F2 F3  checksum = 01   header time =   0, full time =   0
End TriggerBlock
// counts CAN 1 recorded 2, lost 0
// counts LIN 1 recorded 1, lost 0
// counts LIN 2 recorded 1, lost 0
)");
}

INSTANTIATE_TEST_SUITE_P(All, Formats, testing::ValuesIn(formats),
                         [](const auto& entry) { return std::string(entry.param.ending + 1); });

}  // namespace
}  // namespace station::every_format
