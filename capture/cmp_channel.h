#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bridge/output/output_factory.h"
#include "capture/channel_counts.h"
#include "capture/cmp_message.h"
#include "core/mutex.h"
#include "setup/node.h"
#include "sync/gnss_clock.h"

/// One interface of a capture module: one CAN, CAN FD or LIN bus.
///
/// Here two threads meet. The capture thread brings messages, one with each `onData`, makes them
/// visible with `handOver`, and stores bus status; the host's thread empties the queue with `flush`
/// and does everything else. The kinds of channel differ in what `FrameChannel` is made of.
class CmpChannel {
  public:
    using GNSSClock = Kestrova::Utils::Kcom::Synchronization::GNSSClock;
    using OutputChannel = Kestrova::Utils::Kcom::OutputChannel::OutputChannel;
    using OutputChannelType = Kestrova::Utils::Kcom::OutputChannel::OutputChannelType;
    using OutputFactory = Kestrova::Utils::Kcom::OutputChannel::OutputFactory;
    using Node = Kestrova::Utils::Serialization::Node;

    /// The factory isn't owned and outlives the channel.
    explicit CmpChannel(OutputFactory* factory) : outputFactory(factory) {}
    CmpChannel(const CmpChannel&) = delete;
    CmpChannel& operator=(const CmpChannel&) = delete;
    virtual ~CmpChannel() = default;

    /// Capture thread: takes the message in a payload of `length` bytes as a sample. Answers false
    /// for a payload that it can't use.
    virtual bool onData(const DeviceTime& time, std::uint32_t length,
                        const std::uint8_t* payload) = 0;
    /// Capture thread: queues the samples taken since the last time.
    virtual void handOver() = 0;
    /// Capture thread: whether this is the first time since `handOver`.
    bool enterBurst() { return !std::exchange(isInBurst, true); }
    /// Whether there is anything to take over, so that idle channels cost next to nothing.
    bool hasHandedOver() {
        return isHandedOver.load(std::memory_order_relaxed) &&
               isHandedOver.exchange(false, std::memory_order_acq_rel);
    }
    /// Takes over what the capture thread has queued up to now; `flush` works on that.
    virtual void takeOver() = 0;
    /// Whether there is anything to flush.
    bool hasTakenOver() const { return isTakenOver; }
    /// Writes the samples taken over whose time has come into the output channel.
    virtual void flush(const std::shared_ptr<GNSSClock>& clock) = 0;
    /// Empties the queue and forgets the last value; with the capture thread stopped.
    virtual void reset() = 0;
    /// What became of the messages since `beginCounting`. Host's thread.
    virtual ChannelCounts getCounts() const = 0;
    /// At the start of data read, with the capture thread stopped.
    virtual void beginCounting() = 0;
    /// At its end, the same way: says of all that is still queued what becomes of it, and drops it.
    virtual void endCounting(const std::shared_ptr<GNSSClock>& clock) = 0;
    virtual std::string getTypeName() const = 0;
    /// The newest sample as text, empty if none was written since `reset`.
    virtual std::string getLastValueText() const = 0;
    /// Makes an output channel for this bus and binds to it.
    virtual void createOutput() {}
    virtual OutputChannelType outputType() const = 0;
    /// Stores the latest bus status. Its interface ID is the channel's identity: what comes after
    /// the first always carries the same.
    void setBusStatus(const BusStatus& status) CMP_EXCLUDES(statusLock);
    BusStatus getBusStatus() const CMP_EXCLUDES(statusLock);
    std::uint16_t getInterfaceId() const CMP_EXCLUDES(statusLock);

    /// Name of the output channel; empty, and not to be set, without one.
    std::string getName() const;
    void setName(const std::string& name);
    const std::shared_ptr<OutputChannel>& getOutput() const { return output; }
    /// Where the channel leaves its counts when it goes; may be null.
    void setGoneCounts(std::shared_ptr<GoneCounts> counts) { goneCounts = std::move(counts); }
    /// -1 without one.
    std::int32_t getOutputIndex() const {
        return output ? static_cast<std::int32_t>(output->getIndex()) : -1;
    }
    void setOutput(std::shared_ptr<OutputChannel> channel) {
        std::swap(output, channel);
        if (isFlushing) {
            replacedOutputs.push_back(std::move(channel));
        }
    }
    void releaseOutput() { setOutput(nullptr); }
    /// Lets the next sample be written at any time; at the start of a measurement.
    void resetLastTime() {
        lastTime = 0.0;
        ++timeResets;
    }
    double getLastTime() const { return lastTime; }

    /// Writes the output's key; without an output there is none to write.
    void save(Node& node) const;
    /// Binds to the output whose key the node holds, or to a new one where it holds no number.
    void load(Node& node);

  protected:
    void leaveBurst() { isInBurst = false; }
    /// Capture thread, behind the hand-over.
    void setHandedOver() { isHandedOver.store(true, std::memory_order_release); }
    void setTakenOver(bool any) { isTakenOver = any; }

    /// The output that a flush began with lives until it is over.
    void beginFlush() { isFlushing = true; }
    void endFlush() {
        isFlushing = false;
        if (!replacedOutputs.empty()) {
            replacedOutputs.clear();
        }
    }
    bool isAmidFlush() const { return isFlushing; }

    OutputFactory* const outputFactory;
    std::shared_ptr<OutputChannel> output;
    double lastTime = 0.0;         ///< host time of the newest sample written, seconds
    std::uint32_t timeResets = 0;  ///< how often `lastTime` was reset
    std::shared_ptr<GoneCounts> goneCounts;

  private:
    // The capture thread's own.
    bool isInBurst = false;
    // Of both.
    std::atomic<bool> isHandedOver{false};
    // The host's thread's own.
    bool isTakenOver = false;
    bool isFlushing = false;
    std::vector<std::shared_ptr<OutputChannel>> replacedOutputs;  ///< since the flush began

    mutable Mutex statusLock;
    BusStatus busStatus CMP_GUARDED_BY(statusLock);
};
