#include "station/fleet/batch_journal.h"

#include "host/bus_record.h"

#include "station/fleet/batch_numbers.h"
#include "station/recording/pcapng_recording.h"
#include "tests/support/temporary_folder.h"

namespace station {
namespace {

/// A file of one section with three messages.
std::string makeSection(const TemporaryFolder& folder) {
    const auto path = folder.path() / "section.pcapng";
    PcapngRecording recording(path.string(), true);
    const auto channel = recording.addChannel({"Front", BusType::Can});
    const CanFrame frame;
    for (std::int64_t time : {1, 2, 3}) {
        recording.write(channel, time, &frame, sizeof frame);
    }
    recording.close();
    return contentOf(path);
}

std::span<const std::uint8_t> bytesOf(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

class Journal : public testing::Test {
  protected:
    /// What is in it, as numbers; each has to be as it was appended.
    std::vector<std::uint64_t> open() {
        std::vector<std::uint64_t> numbers;
        BatchJournal journal(path, [&](const BatchJournal::Entry& entry) {
            EXPECT_EQ(entry.subject, "cmp.bench");
            EXPECT_EQ(entry.messages, 3);
            EXPECT_EQ(contentOf(path).substr(entry.offset, entry.bytes), section);
            numbers.push_back(entry.number);
        });
        return numbers;
    }
    void append(BatchJournal& journal, std::uint64_t number) {
        StoredBatch batch;
        batch.subject = "cmp.bench";
        batch.number = number;
        batch.messages = 3;
        batch.payload = bytesOf(section);
        ASSERT_TRUE(journal.append(batch)) << journal.getErrorText();
    }
    void fill() {
        BatchJournal journal(path, [](const auto&) {});
        for (const std::uint64_t number : {7U, 8U, 9U}) {
            append(journal, number);
            ASSERT_TRUE(journal.sync());
        }
    }

    const TemporaryFolder folder;
    const std::string path = folder.path() / "journal.pcapng";
    const std::string section = makeSection(folder);
};

TEST_F(Journal, CutAnywhereHoldsTheWholeBatchesAndGoesOn) {
    fill();
    const std::string whole = contentOf(path);
    const std::size_t size = whole.size() / 3;
    ASSERT_EQ(size * 3, whole.size());
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        std::ofstream(path, std::ios::binary) << whole.substr(0, length);
        ASSERT_EQ(open().size(), length / size) << length;
        ASSERT_EQ(contentOf(path).size(), length / size * size);
    }
    std::filesystem::resize_file(path, 2 * size + 1);
    BatchJournal journal(path, [](const auto&) {});
    append(journal, 9);
    ASSERT_TRUE(journal.sync());
    EXPECT_EQ(contentOf(path), whole);
}

TEST_F(Journal, ABatchThatIsDamagedEndsIt) {
    fill();
    const std::string whole = contentOf(path);
    const std::size_t size = whole.size() / 3;
    for (std::size_t at = size; at < 2 * size; ++at) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x55);
        std::ofstream(path, std::ios::binary) << damaged;
        std::size_t count = 0;
        BatchJournal journal(path, [&](const BatchJournal::Entry& entry) {
            count += contentOf(path).substr(entry.offset, entry.bytes) == section ? 1 : 0;
        });
        ASSERT_TRUE(count == 1 || count == 3) << at;  // 3: in what no reader needs
    }
}

TEST_F(Journal, APayloadIsOneThatEndsWithABlock) {
    std::set<std::size_t> ends;
    for (std::size_t at = 0; at < section.size(); ends.insert(at)) {
        std::uint32_t size = 0;
        std::memcpy(&size, section.data() + at + 4, sizeof size);
        at += size;
    }
    ASSERT_EQ(ends.size(), 6);  // section, channel, three messages, counts
    for (std::size_t length = 0; length <= section.size(); ++length) {
        // Memory that ends where the payload does, so that reading on is noticed.
        const std::vector<std::uint8_t> exact(section.begin(),
                                              section.begin() + static_cast<long>(length));
        ASSERT_EQ(isPcapng(exact), ends.contains(length)) << length;
    }
    for (const std::size_t end : ends) {
        for (const std::size_t at : {end - 4, end + 4}) {
            std::string other = section;
            char& byte = other[at % section.size()];
            byte = static_cast<char>(byte ^ 4);
            EXPECT_FALSE(isPcapng(bytesOf(other))) << at;
        }
    }
}

TEST(BatchNumbers, RangesGrowTogether) {
    BatchNumbers numbers;
    for (const std::uint64_t number : {5U, 3U, 9U, 4U, 10U, 1U}) {
        EXPECT_FALSE(numbers.has(number));
        numbers.add(number);
        EXPECT_TRUE(numbers.has(number));
    }
    numbers.add(5);
    EXPECT_EQ(numbers.getRanges(), (BatchNumbers::Ranges{{1, 1}, {3, 5}, {9, 10}}));
    EXPECT_EQ(numbers.countMissing(), 4);
    numbers.add(2, 8);
    EXPECT_EQ(numbers.getRanges(), (BatchNumbers::Ranges{{1, 10}}));
}

}  // namespace
}  // namespace station
