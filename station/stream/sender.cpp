#include "station/stream/sender.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <optional>
#include <thread>
#include <utility>

#include "core/mutex.h"

namespace station {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto shortestPause = 100ms;
constexpr auto longestPause = 2000ms;
constexpr auto idlePause = 50ms;
constexpr auto beatPeriod = 2s;
constexpr auto notePeriod = 1s;
constexpr auto endPatience = 3s;
/// While there is no connection nothing is on the way.
constexpr auto openPatience = 200ms;

/// The order in which batches are sent since the engine was opened: those of this run go before
/// those of earlier ones.
///
/// One measurement is sent at a time: another one when all in front of it is acknowledged, and the
/// spool has noted that. So what a broken link or a kill leaves unknown is of one session, which is
/// that of the engine's last batch, and goes on before any other.
class NextBatch {
  public:
    explicit NextBatch(Spool& source)
        : spool(source),
          live{spool.startReading(Spool::Lane::Live)},
          earlier{spool.startReading(Spool::Lane::Earlier)} {}

    /// Null: there is none, or not before all that is on its way is acknowledged.
    const Batch* find(bool isAllAcknowledged) {
        const std::uint64_t current = spool.getCurrent();
        isResuming = isResuming && fill(earlier) && earlier.getMeasurement() == current;
        chosen = !isResuming && fill(live) ? &live : &earlier;
        if (!fill(*chosen) || (chosen->getMeasurement() != current && !isAllAcknowledged)) {
            return nullptr;
        }
        chosen->next.hasOthers = spool.hasOthers(chosen->getMeasurement());
        return &chosen->next;
    }
    // Of what was found.
    std::uint64_t getMeasurement() const { return chosen->getMeasurement(); }
    Spool::Place take() {
        chosen->hasNext = false;
        return chosen->reader.getPlace();
    }
    /// The engine takes no more before it has acknowledged some: all that may be unknown is given.
    void noteRefused() { isResuming = false; }

    bool isEmpty() const { return !live.hasNext && !earlier.hasNext; }

  private:
    struct Lane {
        Spool::Reader reader;
        Batch next = {};
        bool hasNext = false;

        std::uint64_t getMeasurement() const { return reader.getPlace().part.measurement; }
    };
    bool fill(Lane& lane) {
        return lane.hasNext = lane.hasNext || spool.read(lane.reader, lane.next);
    }

    Spool& spool;
    Lane live;
    Lane earlier;
    Lane* chosen = &live;
    bool isResuming = true;
};

}  // namespace

struct Sender::Shared {
    void run() CMP_EXCLUDES(lock) {
        auto pause = shortestPause;
        while (!isEnding) {
            try {
                isOpening = true;
                publisher->open();
                isOpening = false;
                send(pause);
                break;
            } catch (const PublishError& failure) {
                noteFailure(failure.what(), failure.getCause() == PublishError::Cause::NameTaken);
            } catch (const std::exception& failure) {  // what a broker's answer may lead to
                noteFailure(failure.what(), false);
            }
            publisher->close();
            spool->saveNote();  // whoever ends it while it connects doesn't wait for it
            countAll();
            waitFor(pause);
            pause = std::min<std::chrono::milliseconds>(2 * pause, longestPause);
        }
        isOpening = false;
        publisher->close();
        spool->saveNote();
        countAll();
        const LockGuard guard(lock);
        isOver = true;
        changed.notify_all();
    }

    /// Until the end, or a failure. The pause becomes short again when something was stored.
    void send(std::chrono::milliseconds& pause) CMP_EXCLUDES(lock) {
        struct OnTheWay {
            Spool::Place end;
            std::uint64_t messages;
        };
        std::deque<OnTheWay> onTheWay;
        std::uint64_t acknowledged = 0;
        std::uint64_t messages = 0;
        NextBatch next(*spool);
        bool isWell = false;
        nextBeat = Clock::now();
        saveNote();
        while (!isEnding) {
            // Thousands that the engine has already may follow each other.
            const auto turnEnd = Clock::now() + idlePause;
            bool isTurnOver = false;
            while (!isTurnOver) {
                const Batch* const batch = next.find(onTheWay.empty());
                if (batch == nullptr) {
                    break;
                }
                turnTo(next.getMeasurement());
                if (!publisher->publish(*batch)) {
                    next.noteRefused();
                    break;
                }
                onTheWay.push_back({next.take(), batch->messages});
                noteOnTheWay(messages += batch->messages);
                isTurnOver = isEnding || Clock::now() >= turnEnd;
            }
            const bool isCounting = spool->countNext();  // beside it: there may be thousands of MB
            if (onTheWay.empty() && !isCounting) {
                spool->waitForMore(idlePause);
            }
            const std::uint64_t now =
                publisher->getAcknowledged(onTheWay.empty() || isTurnOver ? 0ms : idlePause);
            for (; acknowledged < now; ++acknowledged) {
                const OnTheWay& stored = onTheWay.front();
                spool->acknowledge(stored.end, stored.messages);
                noteOnTheWay(messages -= stored.messages);
                onTheWay.pop_front();
                pause = shortestPause;
            }
            // An engine that can be reached may refuse what it is given.
            if (!isWell && (acknowledged != 0 || (onTheWay.empty() && next.isEmpty()))) {
                isWell = true;
                noteWell();
            }
            lookAround();
        }
        lookAround();
    }

    void countAll() CMP_EXCLUDES(lock) {
        while (spool->countNext()) {
        }
    }
    void turnTo(std::uint64_t measurement) CMP_EXCLUDES(lock) {
        if (measurement != spool->getCurrent()) {
            spool->setCurrent(measurement);
            saveNote();
        }
    }
    void saveNote() CMP_EXCLUDES(lock) {
        if (!spool->saveNote() && !std::exchange(isNoteFailureReported, true)) {
            report(
                "the stream's spool: its note of what is acknowledged can't be written: after "
                "the next start more is sent again, which the broker knows within its "
                "duplicate window only; make room");
        }
    }

    /// What is to be done now and then.
    void lookAround() CMP_EXCLUDES(lock) {
        const auto now = Clock::now();
        if (now >= nextNote) {
            nextNote = now + notePeriod;
            saveNote();
        }
        if (beat && (isEnding || now >= nextBeat)) {
            nextBeat = now + beatPeriod;
            State latest;
            {
                const LockGuard guard(lock);
                latest = state;
            }
            latest.isEnding = isEnding;
            beat(latest);
        }
    }

    void noteWell() CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        state = {true, {}, state.onTheWay, false, false};
        if (!std::exchange(failureReported, {}).empty()) {
            texts.push_back("the stream goes on");
        }
    }
    void noteFailure(const std::string& failure, bool isNameTaken) CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        state = {false, failure, 0, false, isNameTaken};
        if (std::exchange(failureReported, failure) != failure) {
            texts.push_back("the stream waits in its spool: " + failure);
        }
    }
    void noteOnTheWay(std::uint64_t messages) CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        state.onTheWay = messages;
    }
    void report(std::string text) CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        texts.push_back(std::move(text));
    }
    void waitFor(std::chrono::milliseconds pause) CMP_EXCLUDES(lock) {
        const auto end = Clock::now() + pause;
        const LockGuard guard(lock);
        while (!isEnding && changed.wait_until(lock, end) == std::cv_status::no_timeout) {
        }
    }

    Shared(std::shared_ptr<Spool> source, std::shared_ptr<Publisher> target, Beat beatCall)
        : spool(std::move(source)), publisher(std::move(target)), beat(std::move(beatCall)) {}

    const std::shared_ptr<Spool> spool;
    const std::shared_ptr<Publisher> publisher;
    const Beat beat;

    // The thread's own.
    Clock::time_point nextNote;
    Clock::time_point nextBeat;
    bool isNoteFailureReported = false;

    std::atomic<bool> isEnding{false};
    std::atomic<bool> isOpening{false};
    Mutex lock;
    std::condition_variable_any changed;
    bool isOver CMP_GUARDED_BY(lock) = false;
    State state CMP_GUARDED_BY(lock);
    std::string failureReported CMP_GUARDED_BY(lock);
    std::vector<std::string> texts CMP_GUARDED_BY(lock);
};

Sender::Sender(std::shared_ptr<Spool> source, std::shared_ptr<Publisher> target, Beat beat)
    : shared(std::make_shared<Shared>(std::move(source), std::move(target), std::move(beat))) {
    std::thread([held = shared] { held->run(); }).detach();
}

Sender::~Sender() {
    end();
}

Sender::State Sender::getState() const {
    const LockGuard guard(shared->lock);
    return shared->state;
}

std::vector<std::string> Sender::takeTexts() {
    std::vector<std::string> texts = shared->spool->takeTexts();
    const LockGuard guard(shared->lock);
    std::ranges::move(std::exchange(shared->texts, {}), std::back_inserter(texts));
    return texts;
}

void Sender::end() {
    const auto start = Clock::now();
    const LockGuard guard(shared->lock);
    const bool wasEnding = shared->isEnding.exchange(true);
    shared->changed.notify_all();
    while (!wasEnding && !shared->isOver &&
           Clock::now() < start + (shared->isOpening ? openPatience : endPatience)) {
        shared->changed.wait_for(shared->lock, idlePause);
    }
}

}  // namespace station
