#include "station/recording/recording_queue.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <limits>
#include <numeric>
#include <optional>
#include <thread>
#include <utility>

#include "core/mutex.h"
#include "station/recording/time_merge.h"

namespace station {
namespace {

using Clock = RecordingQueue::Clock;
using namespace std::chrono_literals;

constexpr std::size_t mostSpare = 32;  // chunks
constexpr std::int64_t nothing = std::numeric_limits<std::int64_t>::min();

}  // namespace

struct RecordingQueue::Shared {
    Shared(std::shared_ptr<RecordingSet> recordingSet, std::size_t mostWaiting, WhenFull whenFull)
        : recordings(std::move(recordingSet)),
          limit(mostWaiting),
          isWaitedFor(whenFull == WhenFull::Wait),
          isOver(recordings->empty()),
          states(recordings->summarize()) {}

    /// The thread's work, until the end.
    void run() CMP_EXCLUDES(lock) {
        while (waitForWork()) {
            if (present) {
                const std::int64_t horizon = present->horizon;
                merge.take(std::move(present));
                write(horizon);
                publish({});
                givenBack();
            } else {
                takeAccount();
                write(presentHorizon);
                if (isPartToEnd.exchange(false)) {
                    recordings->endParts();
                }
                publish(recordings->flush());
            }
        }
        takeAccount();
        write(TimeMerge::all);
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
        isWriting = false;
        while (waiting.empty() && !isFlushWanted && !isEnding) {
            changed.wait(lock);
        }
        if (!waiting.empty()) {
            present = std::move(waiting.front());
            waiting.pop_front();
            waitingBytes -= present->getUsed();
            heldBytes += present->getUsed();
            isWriting = true;
            return true;
        }
        presentHorizon = flushHorizon;
        return std::exchange(isFlushWanted, false);
    }
    /// What is older than that, or everything if too much is held back: better out of order than
    /// not at all.
    void write(std::int64_t horizon) {
        const bool isTooMuch = !isWaitedFor && merge.getHeldBytes() > limit / 2;
        merge.release(isTooMuch ? TimeMerge::all : horizon,
                      [this](const MessageChunk::Head& head, const std::uint8_t* record) {
                          recordings->write(head.channel, head.utcNanoseconds, record, head.size);
                      });
    }
    void takeAccount() CMP_EXCLUDES(lock) {
        std::optional<RecordingAccount> latest;
        {
            const LockGuard guard(lock);
            latest.swap(account);
        }
        if (latest) {
            recordings->setAccount(*latest);
        }
    }
    void givenBack() CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        changed.notify_all();
        heldBytes = merge.getHeldBytes();
        while (auto chunk = merge.takeSpare()) {
            if (spare.size() < mostSpare) {
                spare.push_back(std::move(chunk));
            }
        }
    }
    bool hasRoomFor(std::size_t bytes) const CMP_REQUIRES(lock) {
        return waitingBytes + (isWaitedFor ? 0 : heldBytes) + bytes <= limit;
    }
    bool isBusy() const CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        return isWriting || !waiting.empty();
    }
    /// After each step, however small, so that what is known is what is in the files.
    void publish(std::vector<std::string> failures) CMP_EXCLUDES(lock) {
        std::vector<RecordingSummary> now = recordings->summarize();
        haveAllFailed = recordings->haveAllFailed();
        const LockGuard guard(lock);
        if (!isAbandoned) {
            states = std::move(now);
        }
        late = merge.getLate();
        movedAt = Clock::now();
        std::move(failures.begin(), failures.end(), std::back_inserter(texts));
    }

    std::shared_ptr<RecordingSet> recordings;  ///< the thread's own
    const std::size_t limit;
    const bool isWaitedFor;                 ///< there is room at some time, whatever is held back
    std::unique_ptr<MessageChunk> present;  ///< the thread's own
    std::int64_t presentHorizon = nothing;  ///< the same, for a flush
    TimeMerge merge;                        ///< the same
    std::atomic<bool> isToBeClosed{false};  ///< else it is left to the owner
    std::atomic<bool> isPartToEnd{false};
    std::atomic<bool> haveAllFailed{false};
    mutable Mutex lock;
    std::condition_variable_any changed;
    std::deque<std::unique_ptr<MessageChunk>> waiting CMP_GUARDED_BY(lock);
    std::vector<std::unique_ptr<MessageChunk>> spare CMP_GUARDED_BY(lock);
    std::size_t waitingBytes CMP_GUARDED_BY(lock) = 0;
    std::size_t heldBytes CMP_GUARDED_BY(lock) = 0;  ///< of chunks that the thread has
    std::int64_t flushHorizon CMP_GUARDED_BY(lock) = nothing;
    std::uint64_t late CMP_GUARDED_BY(lock) = 0;
    bool isWriting CMP_GUARDED_BY(lock) = false;
    Clock::time_point movedAt CMP_GUARDED_BY(lock);
    bool isFlushWanted CMP_GUARDED_BY(lock) = false;
    bool isEnding CMP_GUARDED_BY(lock) = false;
    bool isOver CMP_GUARDED_BY(lock);
    bool isAbandoned CMP_GUARDED_BY(lock) = false;  ///< what isn't in a file by `states` is lost
    std::optional<RecordingAccount> account CMP_GUARDED_BY(lock);  ///< not taken yet
    std::vector<std::string> texts CMP_GUARDED_BY(lock);
    std::vector<RecordingSummary> states CMP_GUARDED_BY(lock);
};

RecordingQueue::RecordingQueue(std::shared_ptr<RecordingSet> recordingSet, std::size_t mostWaiting,
                               WhenFull whenFull)
    : shared(std::make_shared<Shared>(std::move(recordingSet), mostWaiting, whenFull)) {
    const LockGuard guard(shared->lock);
    if (!shared->isOver) {
        current = std::make_unique<MessageChunk>();
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
    if (!current->hasRoomFor(size) && !passOn(false)) {
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
    while (!evenIfFull && !shared->hasRoomFor(current->getUsed())) {
        if (!shared->isWaitedFor) {
            return false;
        }
        shared->changed.wait(shared->lock);
    }
    if (!shared->isWriting && shared->waiting.empty()) {
        shared->movedAt = Clock::now();
    }
    current->horizon = latestHorizon;
    shared->waitingBytes += current->getUsed();
    shared->waiting.push_back(std::move(current));
    shared->changed.notify_all();
    if (shared->spare.empty()) {
        current = std::make_unique<MessageChunk>();
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
    if (current && !current->isEmpty() && !shared->isBusy()) {
        passOn(false);
    }
    std::vector<std::string> texts;
    {
        const LockGuard guard(shared->lock);
        shared->isFlushWanted = true;
        if (!current || current->isEmpty()) {
            shared->flushHorizon = latestHorizon;
        }
        shared->changed.notify_all();
        texts = std::exchange(shared->texts, {});
    }
    const std::uint64_t dropped = countDropped();
    if (const std::uint64_t lost = dropped - std::exchange(droppedReported, dropped); lost != 0) {
        texts.push_back("the disk, or who reads a pipe, is too slow: " + std::to_string(lost) +
                        " records found no room to wait for it and are lost");
    }
    const std::uint64_t late = getLate();
    if (const std::uint64_t count = late - std::exchange(lateReported, late); count != 0) {
        texts.push_back(lateText(count));
    }
    return texts;
}

void RecordingQueue::setAccount(RecordingAccount account) {
    const LockGuard guard(shared->lock);
    shared->account = std::move(account);
}

void RecordingQueue::endParts() {
    shared->isPartToEnd = true;
}

void RecordingQueue::beginClose() {
    shared->isToBeClosed = true;
    end();
}

void RecordingQueue::end() {
    handOver();
    if (current && !current->isEmpty()) {
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

bool RecordingQueue::haveAllFailed() const {
    return shared->haveAllFailed;
}

void RecordingQueue::waitClosed() {
    const LockGuard guard(shared->lock);
    while (!shared->isOver) {
        shared->changed.wait(shared->lock);
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
    texts.push_back(
        missing == 0
            ? "the recordings are written, but the disk hasn't confirmed yet that it "
              "keeps them: leave it connected until it is at rest"
            : "the disk doesn't answer, or nobody reads a pipe: the recordings were left as they "
              "are, and up to " +
                  std::to_string(missing) + " records are missing at their end");
    return texts;
}

std::uint64_t RecordingQueue::countDropped() const {
    return std::accumulate(
        accounts.begin(), accounts.end(), std::uint64_t{0},
        [](std::uint64_t sum, const Account& account) { return sum + account.dropped; });
}

std::uint64_t RecordingQueue::getLate() const {
    const LockGuard guard(shared->lock);
    return shared->late;
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
