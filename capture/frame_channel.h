#pragma once

#include <algorithm>
#include <atomic>

#include "capture/bus_frame.h"
#include "capture/channel_counts.h"
#include "capture/cmp_channel.h"
#include "capture/device_time.h"
#include "capture/sample_queue.h"
#include "capture/sequence_locked.h"
#include "core/finally.h"

/// What the two kinds of channel share: a queue of samples, its flush into the output channel, and
/// the last value. `Frame` is the record that the host receives; `addSample` is the operation of
/// the output channel that takes it.
template <class Frame, auto addSample>
class FrameChannel : public CmpChannel {
  public:
    using CmpChannel::CmpChannel;
    ~FrameChannel() override {
        queue.takeOver();
        counts.leftQueued += queue.size();
        const ChannelCounts all = FrameChannel::getCounts();
        if (goneCounts && all.queued + all.unusable != 0) {
            (*goneCounts)[getOutputIndex()] += all;
        }
    }

    bool onData(const DeviceTime& time, std::uint32_t length,
                const std::uint8_t* payload) override {
        if (!holdsFrame<Frame>(payload, length)) {
            unusable.store(unusable.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
            return false;
        }
        queue.append(time, payload);
        return true;
    }

    void handOver() override {
        leaveBurst();
        queue.handOver();
        setHandedOver();
    }

    void takeOver() override {
        queue.takeOver();
        setTakenOver(queue.hasNext());
    }

    /// Asks the clock about each sample in order: `Valid` is written, at a time that never goes
    /// back within the channel; `Wait` leaves it queued and ends the flush; `Discard` drops it. A
    /// sample is dropped as soon as it is done with, so that a host call that raises makes none of
    /// those before it come twice.
    ///
    /// The host may call back while it takes a sample: a flush amid this one does nothing, a reset
    /// ends it, and the output lives until it is over.
    void flush(const std::shared_ptr<GNSSClock>& clock) override {
        if (isAmidFlush()) {
            return;
        }
        beginFlush();
        const Finally over([this] { endFlush(); });
        OutputChannel* const target = output.get();
        const std::uint32_t clears = queue.getClears();
        Frame frame;
        bool written = false;
        while (queue.hasNext()) {
            queue.copyFront(frame);
            const auto result = clock->GetTime(toGnssTime(queue.frontTime()));
            if (result.status == Status::Wait) {
                break;
            }
            if (result.status == Status::Valid && target) {
                write(*target, frame, result.time);
                if (queue.getClears() != clears) {
                    return;
                }
                ++counts.delivered;
                written = true;
            } else {
                countDiscarded(result);
            }
            queue.drop();
        }
        if (written) {  // the last value, also where the clock let it wait or threw it out
            lastFrame.store(frame);
            hasLastFrame.store(true, std::memory_order_release);
        }
        setTakenOver(queue.hasNext());
    }

    void reset() override {
        queue.clear();
        setTakenOver(false);
        hasLastFrame.store(false, std::memory_order_relaxed);
    }

    ChannelCounts getCounts() const override {
        ChannelCounts all = counts;
        all.unusable = unusable.load(std::memory_order_relaxed);
        all.queued = queue.getHandedOver();
        return all;
    }

    void beginCounting() override {
        counts = ChannelCounts();
        unusable.store(0, std::memory_order_relaxed);
        queue.beginCounting();
    }

    void endCounting(const std::shared_ptr<GNSSClock>& clock) override {
        if (isAmidFlush() && queue.hasNext()) {  // the host, which has it, calls back
            ++counts.delivered;
            queue.drop();
        }
        queue.takeOver();
        for (; queue.hasNext(); queue.drop()) {
            const auto result = clock->GetTime(toGnssTime(queue.frontTime()));
            if (result.reason == Reason::AheadOfPosition) {
                ++counts.afterEnd;
            } else if (result.reason == Reason::FarAhead) {  // it came in before it was sent
                ++counts.tooNew;
            } else if (result.status == Status::Valid) {
                ++counts.leftQueued;
            } else {
                countDiscarded(result);
            }
        }
    }

    std::string getLastValueText() const override {
        return hasLastFrame.load(std::memory_order_acquire) ? toText(lastFrame.load())
                                                            : std::string();
    }

  protected:
    virtual std::string toText(const Frame& frame) const = 0;

  private:
    using Status = Kestrova::Utils::Kcom::Synchronization::GNSSTimeStatus;
    using Reason = Kestrova::Utils::Kcom::Synchronization::GNSSTimeReason;

    /// By so much the times of two messages in a row may go back, in seconds: a fitted line moves.
    static constexpr double largestStep = 1e-3;

    void write(OutputChannel& target, const Frame& frame, double hostTime) {
        const std::uint32_t starts = timeResets;
        const double time = std::max(lastTime, hostTime);
        (target.*addSample)(&frame, sizeof(Frame), time);
        if (timeResets == starts) {
            lastTime = time;
            counts.raised += time - hostTime > largestStep ? 1U : 0U;
        }
    }

    /// A sample that isn't written for what the clock said, or for want of an output.
    void countDiscarded(const Kestrova::Utils::Kcom::Synchronization::GNSSTimeResult& result) {
        if (result.status == Status::Valid) {
            ++counts.noOutput;
            return;
        }
        switch (result.reason) {
            case Reason::BeforeStart:  // behind one from after it the clock must have jumped
                ++(counts.delivered == 0 ? counts.beforeStart : counts.tooOld);
                break;
            case Reason::TooOld:
                ++counts.tooOld;
                break;
            case Reason::TooNew:
                ++counts.tooNew;
                break;
            default:
                ++counts.notPlaced;
                break;
        }
    }

    SampleQueue<Frame> queue;
    SequenceLocked<Frame> lastFrame;
    std::atomic<bool> hasLastFrame{false};
    std::atomic<std::uint64_t> unusable{0};  ///< written by the capture thread
    // The host's thread's own.
    ChannelCounts counts;  ///< but for `unusable` and `queued`
};
