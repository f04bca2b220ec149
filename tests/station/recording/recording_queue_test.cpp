#include "station/recording/recording_queue.h"

#include <malloc.h>

#include "station/recording/candump_recording.h"
#include "tests/support/temporary_folder.h"

/// Held by a disk that takes everything and confirms nothing.
static std::mutex confirmation;

/// In place of the system's, for this program.
extern "C" int fsync(int) {
    const std::lock_guard guard(confirmation);
    return 0;
}

namespace station {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace std::chrono_literals;

/// A log on a disk that takes nothing while it is frozen.
class FrozenLog final : public CandumpRecording {
  public:
    FrozenLog(const std::string& path, std::mutex& disk)
        : CandumpRecording(path, false), ice(disk) {}
    void write(std::size_t channel, std::int64_t utc, const void* record,
               std::size_t size) override {
        const std::lock_guard guard(ice);
        CandumpRecording::write(channel, utc, record, size);
        ++taken;
    }
    std::atomic<std::uint32_t> taken{0};  ///< not all of it is in the file

  private:
    std::mutex& ice;
};

class RecordingQueueTest : public ::testing::Test {
  protected:
    RecordingQueueTest() {
        auto log = std::make_unique<FrozenLog>(path, disk);
        recording = log.get();
        recordings->add(std::move(log));
        recordings->open(folder.path() / "b.log");
        queue = std::make_unique<RecordingQueue>(recordings, limit);
        for (const char* name : {"A", "B"}) {
            queue->addChannel({name, BusType::Can});
        }
    }
    /// Messages by turns of both channels, numbered in their identifiers, and as long as can be.
    void write(std::uint32_t count) {
        for (std::uint32_t end = sent + count; sent < end; ++sent) {
            std::array<std::uint8_t, 72> record{};
            std::memcpy(record.data(), &sent, sizeof sent);
            record[4] = 1;
            record[7] = 64;
            queue->setHorizon(sent);
            queue->write(sent % 2, sent, record.data(), record.size());
        }
        queue->setHorizon(sent);
    }
    std::vector<std::string> close() {
        queue->beginClose();
        while (!queue->isClosed()) {
            std::this_thread::sleep_for(1ms);
        }
        return queue->flush();
    }
    RecordingSummary state() const { return queue->summarize().at(0); }

    static constexpr std::size_t limit = 4 * 256 * 1024;
    const TemporaryFolder folder;
    const std::string path = folder.path() / "a.log";
    std::mutex disk;
    std::shared_ptr<RecordingSet> recordings = std::make_shared<RecordingSet>();
    const FrozenLog* recording = nullptr;
    std::unique_ptr<RecordingQueue> queue;
    std::uint32_t sent = 0;
};

TEST_F(RecordingQueueTest, FrozenDiskHoldsUpNobodyAndWhatFindsNoRoomIsCounted) {
    const auto allocated = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    std::unique_lock frozen(disk);
    const std::size_t before = allocated();
    for (int i = 0; i < 100; ++i) {  // two thirds of the limit, in more flushes than it has chunks
        write(80);
        ASSERT_THAT(queue->flush(), IsEmpty());
    }
    EXPECT_LT(allocated(), before + 2 * limit);
    write(30000);
    EXPECT_THAT(queue->flush(), ElementsAre(HasSubstr("found no room")));
    EXPECT_THAT(queue->flush(), IsEmpty()) << "said already";
    EXPECT_TRUE(queue->hasLost());
    frozen.unlock();
    while (state().records == 0) {
        std::this_thread::sleep_for(1ms);
        queue->flush();
    }
    const std::uint32_t after = sent;
    write(100);
    EXPECT_THAT(close(), IsEmpty());
    EXPECT_GE(state().records, limit / 100);
    EXPECT_EQ(state().records + state().lost, sent);
    for (const auto& channel : state().channels) {
        EXPECT_EQ(channel.records + channel.lost, sent / 2);
    }
    // The identifiers rise, and what came when there was room again is there.
    std::ifstream log(path);
    std::int64_t last = -1;
    std::uint64_t lines = 0;
    for (std::string line; std::getline(log, line); ++lines) {
        const std::int64_t number = std::stol(line.substr(line.find('#') - 8, 8), nullptr, 16);
        ASSERT_GT(number, last);
        ASSERT_EQ(line[line.find(')') + 2], number % 2 == 0 ? 'A' : 'B');
        last = number;
        lines += number >= after ? 1000000 : 0;
    }
    EXPECT_EQ(lines % 1000000, state().records);
    EXPECT_EQ(lines / 1000000, 100U);
}

TEST_F(RecordingQueueTest, DiskThatDoesNotComeBackIsLeftWithItsCount) {
    write(50);
    queue->flush();
    while (state().records < 50) {
        std::this_thread::sleep_for(1ms);
    }
    constexpr std::uint32_t chunk = 256 * 1024 / (72 + 16);
    write(chunk + 20);  // the chunk stays in the buffer in front of the file
    while (recording->taken < 50 + chunk) {
        std::this_thread::sleep_for(1ms);
    }
    std::unique_lock frozen(disk);
    queue->beginClose();
    while (queue->getStalled() < 20ms) {
    }
    EXPECT_FALSE(queue->isClosed());
    EXPECT_FALSE(queue->hasLost());
    const std::string log = contentOf(path);
    const auto there = static_cast<std::uint64_t>(std::count(log.begin(), log.end(), '\n'));
    ASSERT_LT(there, 50 + chunk);
    const std::string missing = std::to_string(sent - there) + " records are missing";
    EXPECT_THAT(queue->abandon(), ElementsAre(HasSubstr(missing)));
    EXPECT_TRUE(queue->hasLost());
    EXPECT_EQ(state().records, there);
    EXPECT_EQ(state().lost, sent - there);
    EXPECT_EQ(state().channels.at(1).records + state().channels.at(1).lost, sent / 2);
    frozen.unlock();
}

TEST_F(RecordingQueueTest, DiskThatDoesNotConfirmHasLostNothing) {
    const std::lock_guard unconfirmed(confirmation);
    write(50);
    queue->beginClose();
    while (state().records < 50 || queue->getStalled() < 20ms) {
    }
    EXPECT_FALSE(queue->isClosed());
    EXPECT_THAT(queue->abandon(), ElementsAre(HasSubstr("hasn't confirmed")));
    EXPECT_FALSE(queue->hasLost());
}

}  // namespace
}  // namespace station
