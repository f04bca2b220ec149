#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace station {

/// What is published at once: messages of one subject and session, in the order of time.
struct Batch {
    std::string subject;
    std::string session;         ///< identifier of the measurement, ASCII without blanks
    std::uint64_t number = 0;    ///< from 1, one more for each batch of this subject and session
    std::int64_t firstTime = 0;  ///< of its messages, ns since 1970
    std::int64_t lastTime = 0;
    std::uint64_t messages = 0;
    bool isEnd = false;                 ///< no other batch of this subject and session follows
    bool hasOthers = false;             ///< the sender has, or will have, batches of other sessions
    std::vector<std::uint8_t> payload;  ///< a section of a .pcapng that needs no other

    /// "SESSION/SUBJECT/NUMBER": the same for the same batch, whoever sends it, and no other's.
    std::string getIdentifier() const {
        return session + '/' + subject + '/' + std::to_string(number);
    }
};

/// The engine can't be reached, refuses, or failed. The text says which, why and what to do.
class PublishError : public std::runtime_error {
  public:
    enum class Cause : std::uint8_t { Engine, NameTaken };

    explicit PublishError(const std::string& text, Cause why = Cause::Engine)
        : std::runtime_error(text), cause(why) {}
    /// `NameTaken`: another station has this one's name. The engine is well.
    Cause getCause() const { return cause; }

  private:
    Cause cause;
};

/// An engine that keeps batches for others to read: four operations, so that another one than NATS
/// can take its place (docs/fleet.md). Called on one thread, which it holds up for some seconds,
/// and as long as its link takes for a batch.
///
/// Of each subject the engine has at any time the first batches that it was given, without a gap:
/// an implementation publishes none before those in front of it are stored.
class Publisher {
  public:
    virtual ~Publisher() = default;

    /// Connects. What was published before and isn't acknowledged is forgotten here, and is to be
    /// published again; the engine stores once what it had stored already. Throws `PublishError`.
    virtual void open() = 0;
    /// Begins to send; the batch isn't needed afterwards. False, and nothing is done, while as much
    /// is on its way as may be; what was stored before `open` isn't. Throws `PublishError`.
    virtual bool publish(const Batch& batch) = 0;
    /// How many batches since `open` are stored, counted from the first published one without a
    /// gap. Waits for one more if none has come, `patience` long at most. Throws `PublishError`: no
    /// others will be.
    virtual std::uint64_t getAcknowledged(std::chrono::milliseconds patience) = 0;
    /// Leaves what is on its way. `open` may follow.
    virtual void close() = 0;
};

}  // namespace station
