#include "station/recording/recording_queue.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <numeric>
#include <thread>
#include <utility>

#include "core/mutex.h"

namespace station {
namespace {

using Clock = RecordingQueue::Clock;
using namespace std::chrono_literals;

constexpr std::size_t chunkSize = 256 * 1024;  // bytes
constexpr std::size_t mostSpare = 16;          // chunks

/// In front of each record in a chunk.
struct EntryHead {
    std::int64_t utcNanoseconds;
    std::uint32_t channel;
    std::uint32_t size;
};

}  // namespace

/// Messages in their order.
struct RecordingQueue::Chunk {
    Chunk() { bytes.reserve(chunkSize); }

    void append(const EntryHead& head, const void* record) {
        const std::size_t at = bytes.size();
        bytes.resize(at + sizeof head + head.size);
        std::memcpy(bytes.data() + at, &head, sizeof head);
        std::memcpy(bytes.data() + at + sizeof head, record, head.size);
    }
    void writeInto(RecordingSet& recordings) const {
        EntryHead head{};
        for (std::size_t at = 0; at < bytes.size(); at += sizeof head + head.size) {
            std::memcpy(&head, bytes.data() + at, sizeof head);
            recordings.write(head.channel, head.utcNanoseconds, bytes.data() + at + sizeof head,
                             head.size);
        }
    }

    std::vector<std::uint8_t> bytes;
};

struct RecordingQueue::Shared {
    explicit Shared(std::shared_ptr<RecordingSet> recordingSet)
        : recordings(std::move(recordingSet)),
          isOver(recordings->empty()),
          states(recordings->summarize()) {}

    /// The thread's work, until the end.
    void run() CMP_EXCLUDES(lock) {
        while (waitForWork()) {
            if (present) {
                present->writeInto(*recordings);
                publish({});
                finishPresent();
            } else {
                publish(recordings->flush());
            }
        }
        publish(isToBeClosed ? recordings->close() : std::vector<std::string>());
        recordings->setOnProgress({});
        recordings.reset();
        const LockGuard guard(lock);
        isOver = true;
        changed.notify_all();
    }
    /// False at the end. True with a chunk in `present`, or without one to flush.
    bool waitForWork() CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        while (waiting.empty() && !isFlushWanted && !isEnding) {
            changed.wait(lock);
        }
        if (!waiting.empty()) {
            present = std::move(waiting.front());
            waiting.pop_front();
            return true;
        }
        return std::exchange(isFlushWanted, false);
    }
    void finishPresent() CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        bytes -= present->bytes.size();
        if (spare.size() < mostSpare) {
            present->bytes.clear();
            spare.push_back(std::move(present));
        }
        present.reset();
    }
    bool isBusy() const CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        return bytes != 0;
    }
    /// After each step, however small, so that what is known is what is in the files.
    void publish(std::vector<std::string> failures) CMP_EXCLUDES(lock) {
        std::vector<RecordingSummary> now = recordings->summarize();
        const LockGuard guard(lock);
        if (!isAbandoned) {
            states = std::move(now);
        }
        movedAt = Clock::now();
        std::move(failures.begin(), failures.end(), std::back_inserter(texts));
    }

    std::shared_ptr<RecordingSet> recordings;  ///< the thread's own
    std::unique_ptr<Chunk> present;            ///< the thread's own
    std::atomic<bool> isToBeClosed{false};     ///< else it is left to the owner
    mutable Mutex lock;
    std::condition_variable_any changed;
    std::deque<std::unique_ptr<Chunk>> waiting CMP_GUARDED_BY(lock);
    std::vector<std::unique_ptr<Chunk>> spare CMP_GUARDED_BY(lock);
    std::size_t bytes CMP_GUARDED_BY(lock) = 0;  ///< of chunks that wait or are being written
    Clock::time_point movedAt CMP_GUARDED_BY(lock);
    bool isFlushWanted CMP_GUARDED_BY(lock) = false;
    bool isEnding CMP_GUARDED_BY(lock) = false;
    bool isOver CMP_GUARDED_BY(lock);
    bool isAbandoned CMP_GUARDED_BY(lock) = false;  ///< what isn't in a file by `states` is lost
    std::vector<std::string> texts CMP_GUARDED_BY(lock);
    std::vector<RecordingSummary> states CMP_GUARDED_BY(lock);
};

RecordingQueue::RecordingQueue(std::shared_ptr<RecordingSet> recordingSet, std::size_t mostWaiting)
    : shared(std::make_shared<Shared>(std::move(recordingSet))), limit(mostWaiting) {
    const LockGuard guard(shared->lock);
    if (!shared->isOver) {
        current = std::make_unique<Chunk>();
        std::thread([held = shared] { held->run(); }).detach();
    }
}

RecordingQueue::~RecordingQueue() {
    end();
    while (!isClosed() && getStalled() < 500ms) {
        const LockGuard guard(shared->lock);
        shared->changed.wait_for(shared->lock, 10ms);
    }
}

void RecordingQueue::addChannel(const ChannelDescription& channel) {
    shared->recordings->addChannel(channel);
    accounts.emplace_back();
}

void RecordingQueue::write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                           std::size_t size) {
    if (!current) {
        return;
    }
    ++accounts[channel].given;
    if (current->bytes.size() + sizeof(EntryHead) + size > chunkSize && !passOn(false)) {
        ++accounts[channel].dropped;
        return;
    }
    current->append(
        {utcNanoseconds, static_cast<std::uint32_t>(channel), static_cast<std::uint32_t>(size)},
        record);
}

/// From here on the thread says how the recordings do; up to here they have what `addChannel` gave
/// them.
void RecordingQueue::handOver() {
    if (!std::exchange(isHandedOver, true) && current) {
        shared->recordings->setOnProgress([held = shared.get()] { held->publish({}); });
        const LockGuard guard(shared->lock);
        shared->states = shared->recordings->summarize();
    }
}

/// Gives the chunk to the thread and takes another one. False where that would be too much.
bool RecordingQueue::passOn(bool evenIfFull) {
    handOver();
    const LockGuard guard(shared->lock);
    if (shared->bytes + current->bytes.size() > limit && !evenIfFull) {
        return false;
    }
    if (shared->bytes == 0) {
        shared->movedAt = Clock::now();
    }
    shared->bytes += current->bytes.size();
    shared->waiting.push_back(std::move(current));
    shared->changed.notify_all();
    if (shared->spare.empty()) {
        current = std::make_unique<Chunk>();
    } else {
        current = std::move(shared->spare.back());
        shared->spare.pop_back();
    }
    return true;
}

std::vector<std::string> RecordingQueue::flush() {
    handOver();
    // A thread that has enough to write gets no chunk that could still be filled: each takes up
    // the memory of a full one.
    if (current && !current->bytes.empty() && !shared->isBusy()) {
        passOn(false);
    }
    std::vector<std::string> texts;
    {
        const LockGuard guard(shared->lock);
        shared->isFlushWanted = true;
        shared->changed.notify_all();
        texts = std::exchange(shared->texts, {});
    }
    const std::uint64_t dropped = countDropped();
    if (const std::uint64_t lost = dropped - std::exchange(droppedTold, dropped); lost != 0) {
        texts.push_back("the disk is too slow: " + std::to_string(lost) +
                        " messages found no room to wait for it and aren't recorded");
    }
    return texts;
}

void RecordingQueue::beginClose() {
    shared->isToBeClosed = true;
    end();
}

void RecordingQueue::end() {
    handOver();
    if (current && !current->bytes.empty()) {
        passOn(true);
    }
    current.reset();
    const LockGuard guard(shared->lock);
    if (!shared->isEnding) {
        shared->isEnding = true;
        shared->movedAt = Clock::now();
        shared->changed.notify_all();
    }
}

bool RecordingQueue::isClosed() const {
    const LockGuard guard(shared->lock);
    return shared->isOver;
}

Clock::duration RecordingQueue::getStalled() const {
    const LockGuard guard(shared->lock);
    return Clock::now() - shared->movedAt;
}

std::vector<std::string> RecordingQueue::abandon() {
    std::vector<std::string> texts = flush();
    const std::vector<RecordingSummary> before = summarize();
    {
        const LockGuard guard(shared->lock);
        shared->isAbandoned = true;
    }
    std::uint64_t missing = 0;
    const std::vector<RecordingSummary> states = summarize();
    for (std::size_t i = 0; i < states.size(); ++i) {
        missing = std::max(missing, states[i].lost - before[i].lost);
    }
    texts.push_back(missing == 0
                        ? "the recordings are written, but the disk hasn't confirmed yet that it "
                          "keeps them: leave it connected until it is at rest"
                        : "the disk doesn't answer, the recordings were left as they are: up to " +
                              std::to_string(missing) + " messages are missing at their end");
    return texts;
}

std::uint64_t RecordingQueue::countDropped() const {
    return std::accumulate(
        accounts.begin(), accounts.end(), std::uint64_t{0},
        [](std::uint64_t sum, const Account& account) { return sum + account.dropped; });
}

bool RecordingQueue::hasLost() const {
    const std::vector<RecordingSummary> states = summarize();
    return countDropped() != 0 || std::any_of(states.begin(), states.end(), [](const auto& state) {
               return state.lost != 0 || !state.error.empty();
           });
}

std::vector<RecordingSummary> RecordingQueue::summarize() const {
    std::vector<RecordingSummary> states;
    bool isAbandoned = false;
    {
        const LockGuard guard(shared->lock);
        states = shared->states;
        isAbandoned = shared->isAbandoned;
    }
    for (RecordingSummary& state : states) {
        for (std::size_t i = 0; i < state.channels.size(); ++i) {
            RecordingSummary::Channel& channel = state.channels[i];
            if (channel.isHeld) {
                const Account& account = accounts[i];
                const std::uint64_t before = channel.lost;
                channel.lost =
                    isAbandoned ? account.given - channel.records : channel.lost + account.dropped;
                state.lost += channel.lost - before;
            }
        }
    }
    return states;
}

}  // namespace station
