#include <zlib.h>

#include "station/recording/mf4_reader.h"
#include "station/recording/recording.h"

#include "tests/support/temporary_folder.h"

namespace station::mf4_files {
namespace {

using testing::HasSubstr;

constexpr std::int64_t start = 1'700'000'000'000'000'000;

/// What is compared of a message: channel, time, record.
struct Message {
    std::string channel;
    std::int64_t time;
    std::string record;
    bool operator==(const Message&) const = default;
};

template <typename Record>
Message message(const std::string& channel, std::int64_t time, const Record& record) {
    return {channel, time, {reinterpret_cast<const char*>(&record), sizeof record}};
}

Message can(const std::string& channel, std::int64_t time, std::uint32_t id, std::size_t length) {
    CanFrame frame;
    frame.id = id;
    frame.extended = id > 0x7FF ? 1 : 0;
    frame.length = static_cast<std::uint8_t>(length);
    for (std::size_t i = 0; i < length; ++i) {
        frame.data[i] = static_cast<std::uint8_t>(0xFF - i);
    }
    return message(channel, time, frame);
}

Message lin(const std::string& channel, std::int64_t time, std::size_t length) {
    LinFrame frame;
    frame.id = 0x3F;
    frame.length = static_cast<std::uint8_t>(length);
    std::fill_n(frame.data, length, std::uint8_t{0xA5});
    frame.checksum = 0x5A;
    return message(channel, time, frame);
}

/// The blocks of a file as another program could write it, each behind those that it links to.
class OtherFile {
  public:
    std::string bytes = std::string("MDF     4.10    other") + std::string(43, '\0') +
                        block("HD", {0, 0, 0, 0, 0, 0}, number(start, 8) + std::string(24, '\0'));

    std::uint64_t add(const char* id, const std::vector<std::uint64_t>& links,
                      const std::string& fields) {
        bytes.resize((bytes.size() + 7) / 8 * 8);
        bytes += block(id, links, fields);
        return bytes.size() - 24 - 8 * links.size() - fields.size();
    }
    std::uint64_t channel(std::uint64_t next, const std::string& name, char type, char dataType,
                          std::uint32_t bit, std::uint32_t bits, std::uint64_t members = 0) {
        const std::uint64_t text = add("TX", {}, name + '\0');
        return add("CN", {next, members, text, 0, 0, 0, 0, 0},
                   std::string{type, type == 2, dataType, static_cast<char>(bit % 8)} +
                       number(bit / 8, 4) + number(bits, 4) + std::string(60, '\0'));
    }
    std::uint64_t group(std::uint64_t next, std::uint64_t channels, std::uint64_t id,
                        std::uint32_t size) {
        return add("CG", {next, channels, 0, 0, 0, 0},
                   number(id, 8) + number(0, 8) + number(6, 8) + number(size, 4) + number(0, 4));
    }
    std::uint64_t dataGroup(std::uint64_t next, std::uint64_t groups, std::uint64_t data,
                            char idSize) {
        return add("DG", {next, groups, data, 0}, std::string{idSize} + std::string(7, '\0'));
    }
    /// A DT as a DZ, compressed after its rows of `columns` bytes became columns.
    std::uint64_t addPacked(const std::string& data, std::size_t columns) {
        std::string turned = data;
        const std::size_t rows = data.size() / columns;
        for (std::size_t i = 0; i < rows * columns; ++i) {
            turned[i % columns * rows + i / columns] = data[i];
        }
        std::string packed(data.size() + 100, 0);
        uLongf size = packed.size();
        compress(reinterpret_cast<Bytef*>(packed.data()), &size,
                 reinterpret_cast<const Bytef*>(turned.data()), turned.size());
        packed.resize(size);
        return add("DZ", {},
                   std::string{'D', 'T', 1, 0} + number(columns, 4) + number(data.size(), 8) +
                       number(size, 8) + packed);
    }
    void setFirst(std::uint64_t dataGroup) { bytes.replace(64 + 24, 8, number(dataGroup, 8)); }
    static std::string number(std::uint64_t value, std::size_t size) {
        return {reinterpret_cast<const char*>(&value), size};
    }
    static std::string seconds(double value) {
        return {reinterpret_cast<const char*>(&value), sizeof value};
    }

  private:
    static std::string block(const char* id, const std::vector<std::uint64_t>& links,
                             const std::string& fields) {
        std::string result = "##" + std::string(id) + number(0, 4) +
                             number(24 + 8 * links.size() + fields.size(), 8) +
                             number(links.size(), 8);
        for (const std::uint64_t link : links) {
            result += number(link, 8);
        }
        return result + fields;
    }
};

class Mf4Files : public testing::Test {
  protected:
    std::string in(const std::string& name) const { return folder.path() / name; }

    /// Every length, times before the first and far from it, and a channel that comes late.
    void record() {
        const auto recording = openRecording(in("a.mf4"));
        std::map<std::string, std::size_t> handles;
        const auto write = [&](const Message& one) {
            const BusType bus = one.record.size() == sizeof(CanFrame) ? BusType::Can : BusType::Lin;
            if (handles.count(one.channel) == 0) {
                handles[one.channel] = recording->addChannel({one.channel, bus});
            }
            recording->write(handles[one.channel], one.time, one.record.data(), one.record.size());
            written.push_back(one);
        };
        handles["unused"] = recording->addChannel({"unused", BusType::Lin});
        write(can("A & B", start + 1'999'999'999, 0x7FF, 8));
        for (std::uint32_t length = 0; length <= 64; ++length) {
            write(can("A & B", start + length, length + 0x7E0, length));
        }
        for (std::size_t length = 0; length <= 8; ++length) {
            write(lin("late \xC3\xBC", start + 604'800'123'456'789, length));
        }
        write(can("A & B", 1, 0x1FFFFFFF, 0));
        ASSERT_TRUE(recording->flush());
        unfinalized = contentOf(in("a.mf4"));
        ASSERT_TRUE(recording->close()) << recording->getErrorText();
        finalized = contentOf(in("a.mf4"));
    }

    /// The messages of a file with these contents.
    std::vector<Message> read(const std::string& contents) {
        std::filesystem::remove(in("b.mf4"));  // some file systems wait for the disk otherwise
        std::ofstream(in("b.mf4"), std::ios::binary) << contents;
        reader = openMf4(in("b.mf4"));
        std::vector<Message> messages;
        RecordedMessage next;
        while (reader != nullptr && reader->next(next)) {
            messages.push_back({reader->getChannels().at(next.channel).name,
                                next.utcNanoseconds,
                                {next.record.begin(), next.record.begin() + next.size}});
        }
        return messages;
    }

    const TemporaryFolder folder;
    std::vector<Message> written;
    std::string unfinalized;
    std::string finalized;
    std::unique_ptr<MessageReader> reader;
};

TEST_F(Mf4Files, CutAtAnyByteTheyGiveTheMessagesBeforeItAndSayHowManyBytesTheyLeft) {
    record();
    EXPECT_EQ(finalized.substr(0, 8), "MDF     ");
    EXPECT_THAT(finalized, HasSubstr("<e name=\"BusChannel.2\">A &amp; B</e>"));
    for (const std::string& whole : {finalized, unfinalized}) {
        EXPECT_EQ(read(whole), written);
        EXPECT_EQ(reader->getErrorText(), "");
        EXPECT_EQ(reader->getChannels().size(), 3U);
    }
    std::size_t before = 0;
    const std::size_t records = finalized.find("##DT");
    for (std::size_t size = 0; size < finalized.size(); size += size < records ? 17 : 1) {
        const std::string& whole = size < unfinalized.size() ? unfinalized : finalized;
        const std::vector<Message> messages = read(whole.substr(0, size));
        ASSERT_LE(messages.size(), written.size());
        ASSERT_TRUE(std::equal(messages.begin(), messages.end(), written.begin())) << size;
        ASSERT_GE(messages.size(), before);
        before = messages.size();
    }
    EXPECT_EQ(before, written.size());
    read(unfinalized.substr(0, unfinalized.size() - 1));
    EXPECT_THAT(reader->getErrorText(), HasSubstr("28 bytes were left"));  // of 29 of a message
    read(finalized.substr(0, unfinalized.size() - 29));
    EXPECT_THAT(reader->getErrorText(), HasSubstr("29 bytes are missing"));
}

TEST_F(Mf4Files, NothingInThemLeadsOutsideOrAroundForEver) {
    record();
    const std::size_t header = unfinalized.find("##DT") + 24;
    const std::string& small = unfinalized.substr(0, header + 257 + 257 + 29);
    for (std::size_t at = 0; at < header; ++at) {
        std::string flipped = small;
        flipped[at] = static_cast<char>(~flipped[at]);
        ASSERT_LE(read(flipped).size(), 2U);
    }
    for (const char* kind : {"DG", "CG", "CN", "DT"}) {
        const std::uint64_t target = small.find("##" + std::string(kind));
        for (std::size_t at = 64; at < header; at += 8) {
            for (const std::uint64_t value : {target, ~target}) {
                std::string linked = small;
                linked.replace(at, 8, OtherFile::number(value, 8));
                ASSERT_LE(read(linked).size(), 1U) << "none twice";
            }
        }
    }
}

TEST_F(Mf4Files, OfOtherProgramsAreReadSortedOrNotAndMergedByTime) {
    OtherFile file;
    // Sorted: times of floating point, DLC and no DataLength, the identifier big-endian, no member
    // of a structure; records across two blocks of lists with empty links, the second compressed.
    const std::uint64_t dataBytes = file.channel(0, "CAN_DataFrame.DataBytes", 0, 10, 104, 512);
    std::uint64_t channels = file.channel(dataBytes, "CAN_DataFrame.DLC", 0, 0, 100, 4);
    channels = file.channel(channels, "CAN_DataFrame.ID", 0, 1, 64, 32);
    channels = file.channel(channels, "t", 2, 4, 0, 64);
    const std::uint64_t sorted = file.group(0, channels, 0, 77);
    std::string data;
    for (const double time : {0.25, 0.75}) {
        data += OtherFile::seconds(time) + std::string{0, 0, 1, 0x23, '\x90'};
        data += can("", 0, 0, 12).record.substr(8, 64);
    }
    const std::uint64_t second = file.addPacked(data.substr(50), 7);
    const std::uint64_t first = file.add("DT", {}, data.substr(0, 50));
    const std::uint64_t rest = file.add("DL", {0, second}, OtherFile::number(0, 8));
    std::vector<std::uint64_t> links(5000);
    links.front() = rest;
    links.back() = first;
    const std::uint64_t list = file.add("DL", links, OtherFile::number(0, 8));
    // Not sorted: identifiers of two bytes, an error frame, values of any length, a structure.
    std::uint64_t members = file.channel(0, "DataBytes", 0, 10, 80, 64);
    members = file.channel(members, "DataLength", 0, 0, 76, 4);
    members = file.channel(members, "ID", 0, 0, 70, 6);
    members = file.channel(members, "BusChannel", 0, 0, 64, 6);
    channels = file.channel(0, "LIN_Frame", 0, 10, 64, 80, members);
    channels = file.channel(channels, "t", 2, 4, 0, 64);
    std::uint64_t groups = file.group(0, channels, 0x101, 18);
    groups = file.group(groups, file.channel(0, "CAN_ErrorFrame", 0, 10, 0, 8), 0x102, 1);
    const std::string unsorted = OtherFile::number(0x102, 2) + 'E' + OtherFile::number(0x101, 2) +
                                 OtherFile::seconds(0.5) + "\xC0\x2F" + std::string(2, '\xA5') +
                                 std::string(6, '\0');
    const std::uint64_t other = file.add("DT", {}, unsorted);
    const std::uint64_t dataGroup = file.dataGroup(0, groups, other, 2);
    file.setFirst(file.dataGroup(dataGroup, sorted, list, 0));
    LinFrame frame;
    frame.id = 0x3F;
    frame.length = 2;
    frame.data[0] = frame.data[1] = 0xA5;
    EXPECT_EQ(read(file.bytes), (std::vector{can("CAN 0", start + 250'000'000, 0x123, 12),
                                             message("LIN 0", start + 500'000'000, frame),
                                             can("CAN 0", start + 750'000'000, 0x123, 12)}));
    EXPECT_EQ(reader->getErrorText(), "");
    EXPECT_EQ(reader->getSkipped(), 1U);
    const auto with = [&](std::uint64_t at, std::uint32_t value) {
        return std::string(file.bytes).replace(at, 4, OtherFile::number(value, 4));
    };
    EXPECT_EQ(read(with(dataBytes + 96, 64)).front(), can("CAN 0", start + 250'000'000, 0x123, 8));
    const std::pair<std::string, const char*> faults[] = {
        {with(8, 0x30332E33), "of version 3.30"},
        {with(dataBytes + 96, 520), "the data of some frames"},  // they end outside
        {with(sorted + 96, 0), "the data of some frames"},
        {with(second, 0), "isn't where its link says"},
        {with(second + 24, 0), "damaged"},
        {with(second + 32, 1U << 31U), "damaged"},
        {with(second, 0x44522323), "of a kind that isn't read"},
        {with(rest + 24, static_cast<std::uint32_t>(rest)), "lie over each other"},
        {with(other + 24, 0), "of no known group"}};
    for (const auto& [contents, text] : faults) {
        EXPECT_LE(read(contents).size(), contents.size()) << text;
        EXPECT_THAT(reader->getErrorText(), HasSubstr(text));
    }
    read("no MDF");
    EXPECT_EQ(reader, nullptr);
}

}  // namespace
}  // namespace station::mf4_files
