#include <sys/resource.h>

#include <csignal>
#include <regex>

#include "station/recording/blf_reader.h"
#include "station/recording/blf_recording.h"
#include "tests/support/temporary_folder.h"

namespace station::blf_test {  // apart from the names of other formats' tests
namespace {

using testing::HasSubstr;

constexpr std::int64_t firstTime = 1'700'000'000'123'456'789;

struct Message {
    std::string name;
    std::int64_t time = 0;
    std::string record;

    bool operator==(const Message&) const = default;
};
using Messages = std::vector<Message>;

struct Content {
    Messages messages;
    std::vector<ChannelDescription> channels;
    std::uint64_t skipped = 0;
    std::string error;
};

std::string can(std::uint32_t id, std::uint8_t length) {
    CanFrame frame{.id = id, .extended = static_cast<std::uint8_t>(id > 0x7FF), .length = length};
    std::iota(frame.data, frame.data + length, std::uint8_t{1});
    return {reinterpret_cast<const char*>(&frame), sizeof frame};
}

std::string lin(std::uint8_t id, std::uint8_t length, std::uint8_t checksum) {
    LinFrame frame{.id = id, .length = length, .checksum = checksum};
    std::iota(frame.data, frame.data + length, std::uint8_t{1});
    return {reinterpret_cast<const char*>(&frame), sizeof frame};
}

const std::uint8_t* bytesAt(const std::string& bytes, std::size_t at) {
    return reinterpret_cast<const std::uint8_t*>(bytes.data()) + at;
}

Content read(const std::string& path) {
    const auto reader = openBlf(path);
    if (!reader) {
        return {{}, {}, 0, "no .blf"};
    }
    Content content;
    for (RecordedMessage message; reader->next(message);) {
        const std::string record(message.record.begin(), message.record.end());
        content.messages.push_back({reader->getChannels().at(message.channel).name,
                                    message.utcNanoseconds, record.substr(0, message.size)});
    }
    return {content.messages, reader->getChannels(), reader->getSkipped(), reader->getErrorText()};
}

class Blf : public testing::Test {
  protected:
    Blf() { open(); }

    static void zone(const char* name) {
        ::setenv("TZ", name, 1);
        ::tzset();
    }
    void open(bool overwrite = false) {
        recording.reset();
        recording = openRecording(path, overwrite, "session 2");
        written.clear();
        names.clear();
    }
    std::size_t add(const std::string& name, BusType bus = BusType::Can) {
        names.push_back(name);
        return recording->addChannel({name, bus});
    }
    void write(std::size_t channel, std::int64_t at, const std::string& record) {
        recording->write(channel, at, record.data(), record.size());
        written.push_back({names[channel], at, record});
    }
    /// A file of four containers of three messages each.
    std::string writeContainers() {
        add("C");
        for (std::uint8_t i = 0; i < 12; ++i) {
            write(0, firstTime + i, can(0x100, i));
            if (i % 3 == 2) {
                recording->flush();
            }
        }
        recording->close();
        return contentOf(path);
    }
    void rewrite(const std::string& bytes) const { std::ofstream(path, std::ios::binary) << bytes; }

    const TemporaryFolder folder;
    const std::string path = folder.path() / "a.blf";
    std::unique_ptr<Recording> recording;
    Messages written;
    std::vector<std::string> names;
};

TEST_F(Blf, WhatWasWrittenIsReadWithItsNamesAndTimesInAnyZone) {
    zone("EST5EDT,M3.2.0,M11.1.0");
    open(true);
    for (int i = 0; i < 300; ++i) {  // more than a text for other programs can tell apart
        add(i == 7 ? "100 %s; \xC3\xBC" : "CAN " + std::string(static_cast<std::size_t>(i), 'x'));
    }
    add("L", BusType::Lin);
    constexpr std::int64_t twiceInThatZone = 1'699'165'800'000'000'000;
    for (std::uint32_t i = 0; i < 5'000; ++i) {  // more than a container
        const auto at = [i](std::uint32_t most) { return static_cast<std::uint8_t>(i % most); };
        write(i % 300, twiceInThatZone + i, can(i % 2 == 0 ? 0x7FF : 0x1FFFFFFF, at(65)));
        write(300, twiceInThatZone + i, lin(at(64), at(9), at(256)));
    }
    ASSERT_TRUE(recording->close());
    EXPECT_EQ(recording->getRecordsWritten(), written.size());
    const std::string bytes = contentOf(path);
    EXPECT_EQ(blf::get64(bytesAt(bytes, blf::file_header::fileSize)), bytes.size());
    // With a text for each of the first 255 channels, a comment for the rest, two more, two of the
    // file, and the counts of each.
    EXPECT_EQ(blf::get32(bytesAt(bytes, blf::file_header::objects)),
              written.size() + 301 + 3 + 301);
    zone("CET-1CEST,M3.5.0,M10.5.0/3");
    const Content content = read(path);
    EXPECT_TRUE(content.messages == written);
    EXPECT_EQ(content.error, "");
}

TEST_F(Blf, AFileWhoseWriterWasKilledIsReadUpToItsLastFlush) {
    add("C");
    write(0, firstTime, can(1, 8));
    write(0, firstTime - 9'999'999'999, can(2, 8));
    recording->flush();
    std::filesystem::copy_file(path, folder.path() / "killed.blf");
    EXPECT_EQ(read(folder.path() / "killed.blf").messages, written);
    // Before the file's start there is no time.
    recording->write(0, firstTime - 11'000'000'000, written[0].record.data(), sizeof(CanFrame));
    ASSERT_TRUE(recording->close());
    EXPECT_EQ(read(path).messages, written);
    EXPECT_EQ(recording->getRecordsLost(), 1U);
}

TEST_F(Blf, CutAnywhereItIsReadUpToItsLastWholeContainer) {
    const std::string bytes = writeContainers();
    std::vector<std::size_t> starts{blf::file_header::size};
    std::vector<std::size_t> ends;
    while (starts.back() < bytes.size()) {
        const std::size_t size = blf::get32(bytesAt(bytes, starts.back() + blf::object::size));
        ends.push_back(starts.back() + size);
        starts.push_back(ends.back() + size % 4);
    }
    constexpr std::ptrdiff_t withMessages = 4;  // in the last one are the counts
    ASSERT_EQ(ends.size(), 1U + withMessages);
    for (std::size_t size = bytes.size(); size-- > 0;) {
        std::filesystem::resize_file(path, size);
        const auto whole =
            std::min(withMessages, std::upper_bound(ends.begin(), ends.end(), size) - ends.begin());
        const Content content = read(path);
        ASSERT_NE(content.error, "") << size;
        ASSERT_EQ(content.messages, Messages(written.begin(), written.begin() + 3 * whole));
        if (size == starts[2] + 50) {
            ASSERT_THAT(content.error, HasSubstr(" 50 bytes are left"));
        }
    }
}

TEST_F(Blf, AFullDiskLosesWholeContainersAndCountsThem) {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{100'000, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
    add("C");
    std::mt19937 random;
    for (std::uint32_t i = 0; i < 40'000; ++i) {
        write(0, firstTime + i, can(random() & 0x7FFU, 8));
    }
    EXPECT_FALSE(recording->close());
    ::setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_GT(recording->getRecordsWritten(), 0U);
    EXPECT_EQ(recording->getRecordsWritten() + recording->getRecordsLost(), written.size());
    written.resize(recording->getRecordsWritten());
    EXPECT_TRUE(read(path).messages == written);
    EXPECT_EQ(read(path).error, "");
}

TEST_F(Blf, CancelledItLeavesWhatWasThereUnlessThereIsAMessage) {
    recording.reset();
    rewrite("old");
    open(true);
    add("C");
    recording->cancel();
    open(true);
    EXPECT_EQ(contentOf(path), "old");
    add("C");
    write(0, firstTime, can(1, 1));
    recording->cancel();
    EXPECT_EQ(read(path).messages, written);
    open(true);
    add("C");
    recording.reset();
    EXPECT_EQ(read(path).channels.size(), 1U) << "what has no messages has its channels";
}

/// Objects as other programs write them.
class Foreign : public Blf {
  protected:
    static std::string hex(const std::string& digits) {
        std::istringstream pairs(std::regex_replace(digits, std::regex("(\\S\\S)"), "$1 "));
        std::string bytes;
        for (unsigned byte = 0; pairs >> std::hex >> byte;) {
            bytes.push_back(static_cast<char>(byte));
        }
        return bytes;
    }
    static std::string zeros(std::size_t count) { return std::string(count, '\0'); }
    static std::string number(std::uint64_t value, std::size_t size) {
        std::string bytes;
        for (; size > 0; --size, value >>= 8U) {
            bytes.push_back(static_cast<char>(value));
        }
        return bytes;
    }
    static std::string object(std::uint32_t type, std::string content, std::uint64_t at,
                              std::uint32_t unit = 2, std::uint32_t version = 1) {
        content.insert(0, version == 1 ? 0 : 8, '\0');
        const std::size_t headerSize = version == 1 ? 32 : 40;
        const std::string bytes = "LOBJ" + number(headerSize, 2) + number(version, 2) +
                                  number(32 + content.size(), 4) + number(type, 4) +
                                  number(unit, 4) + number(0, 4) + number(at, 8) + content;
        return bytes + zeros(bytes.size() % 4);
    }
    static std::string container(std::string content, bool isPacked) {
        const std::size_t size = content.size();
        if (isPacked) {
            std::vector<std::uint8_t> packed;
            BlockCompressor().compress(
                {reinterpret_cast<const std::uint8_t*>(content.data()), size}, packed);
            content.assign(packed.begin(), packed.end());
        }
        const std::string bytes = "LOBJ" + number(16, 2) + number(1, 2) +
                                  number(32 + content.size(), 4) + number(10, 4) +
                                  number(isPacked ? 2 : 0, 8) + number(size, 8) + content;
        return bytes + zeros(bytes.size() % 4);
    }
    /// The header, without sizes and counts: 2023-11-14, 22:13:20.123.
    static std::string header() {
        return "LOGG" + hex("90000000") + zeros(32) +
               hex("E707 0B00 0200 0E00 1600 0D00 1400 7B00") + zeros(88);
    }
    /// Six messages among four objects that can't be ones, and two of other kinds.
    static std::string allKinds() {
        const std::string data = "\1\2\3\4\5\6\7\10\11\12\13\14";
        const std::string eight = data.substr(0, 8);
        const std::string classic = hex("0100 00 08 FF070000") + eight;
        const std::string remote = hex("0100 80 08 FF070000") + eight;
        const std::string fd = hex("0200 00 09 23010080 00000000 00 01 0C 0000000000") + data;
        const std::string fd64 = hex("03 09 0C 00 FF070000") + zeros(32) + data;
        const std::string shortLin = hex("0100 05 03") + eight + hex("00000000 CD000000");
        const std::string longLin = zeros(12) + hex("0100") + zeros(23) + hex("85 08") + zeros(73) +
                                    eight + hex("AB00") + zeros(10);
        const std::string name =
            hex("01000000 00020100 0A000000 00000000") + "x.dbc;Rear;no part of it";
        return object(1, classic, 1) + object(65, name, 0) + object(86, classic + zeros(8), 2, 1) +
               object(115, zeros(99), 0) + object(100, fd + zeros(52), 3, 2, 2) +
               object(73, zeros(31), 0) + object(101, fd64, 4) + object(1, remote, 0) +
               object(11, shortLin, 5) + object(57, longLin, 6) + object(100, zeros(15), 0) +
               object(14, zeros(8), 0);
    }
    static constexpr std::int64_t start = 1'700'000'000'123'000'000;
};

TEST_F(Foreign, AllKindsOfObjectsAreReadAcrossContainersAndOthersPassedOver) {
    zone("UTC0");
    const std::string all = object(1, zeros(70'000), 0) + allKinds();
    const Messages expected = {
        {"CAN 1", start + 1, can(0x7FF, 8)},   {"CAN 1", start + 20'000, can(0x7FF, 8)},
        {"Rear", start + 3, can(0x123, 12)},   {"CAN 3", start + 4, can(0x7FF, 12)},
        {"LIN 1", start + 5, lin(5, 3, 0xCD)}, {"LIN 1", start + 6, lin(5, 8, 0xAB)}};
    for (std::size_t length : {std::size_t{50}, all.size()}) {
        for (const bool isPacked : {false, true}) {
            std::string bytes = header();
            for (std::size_t at = 0; at < all.size(); at += length) {
                bytes += container(all.substr(at, length), isPacked);
            }
            rewrite(bytes);
            const Content content = read(path);
            Messages messages = expected;
            messages[2].record[offsetof(CanFrame, extended)] = 1;
            EXPECT_EQ(content.messages, messages) << length;
            EXPECT_EQ(content.skipped, 5U);
            EXPECT_EQ(content.error, "");
        }
    }
}

TEST_F(Foreign, AWrongByteMakesNothingElseBeRead) {
    // Not compressed, so that no checksum is in front; the sanitizers see what is read outside.
    const std::string bytes = header() + container(allKinds(), false);
    for (std::size_t at = 4; at < bytes.size(); ++at) {
        for (const int wrong : {0x10, 0xFF}) {
            std::string damaged = bytes;
            damaged[at] = static_cast<char>(damaged[at] ^ wrong);
            rewrite(damaged);
            EXPECT_LE(read(path).messages.size(), 9U) << at;
        }
    }
}

TEST_F(Foreign, HostileSizesEndReadingWithoutGreatMemory) {
    const std::string good = object(1, zeros(16), 0);
    std::string endless = good;
    endless.replace(8, 4, number(0xFFFFFFF0, 4));
    std::string tiny = good;
    tiny.replace(8, 4, number(15, 4));
    for (const auto& [bytes, error] :
         {std::pair(container(good + zeros(17 << 20), true), "16 MiB"),
          std::pair(container(good + endless, true), "cut off"),
          std::pair(container(good + tiny, false), "shorter"),
          std::pair(container(good, true) + endless, "cut off"),
          std::pair(container(good + std::string(40, '?'), true), "no object"),
          std::pair(container(good, false) + std::string(40, '?'), "no object"),
          std::pair(container(good, false).replace(16, 1, "\7"), "known"),
          std::pair(container(good, true).replace(36, 1, "\7"), "damaged")}) {
        rewrite(header() + bytes);
        EXPECT_THAT(read(path).error, HasSubstr(error));
        EXPECT_LE(read(path).messages.size(), 2U);
    }
}

}  // namespace
}  // namespace station::blf_test
