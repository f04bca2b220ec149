#pragma once

#include <algorithm>
#include <atomic>

#include "capture/bus_frame.h"
#include "capture/cmp_channel.h"
#include "capture/device_time.h"
#include "capture/sample_queue.h"
#include "capture/sequence_locked.h"

/// What the two kinds of channel share: a queue of samples, its flush into the output channel, and
/// the last value. `Frame` is the record that the host receives; `addSample` is the operation of
/// the output channel that takes it.
template <class Frame, auto addSample>
class FrameChannel : public CmpChannel {
  public:
    using CmpChannel::CmpChannel;

    bool onData(const DeviceTime& time, std::uint32_t length,
                const std::uint8_t* payload) override {
        const bool usable = holdsFrame<Frame>(payload, length);
        if (usable) {
            queue.append(time, payload);
        }
        return usable;
    }

    void handOver() override {
        leaveBurst();
        queue.handOver();
    }

    /// Asks the clock about each sample in order: `Valid` is written, at a time that never goes
    /// back within the channel; `Wait` leaves it queued and ends the flush; `Discard` drops it. A
    /// sample is dropped as soon as it is done with, so that a host call that raises makes none of
    /// those before it come twice.
    void flush(const std::shared_ptr<GNSSClock>& clock) override {
        OutputChannel* const target = output.get();
        Frame frame;
        bool written = false;
        while (queue.hasNext()) {
            queue.front().copyFront(frame);
            const auto result = clock->GetTime(toGnssTime(queue.front().frontTime()));
            if (result.status == Status::Wait) {
                break;
            }
            if (result.status == Status::Valid && target != nullptr) {
                lastTime = std::max(lastTime, result.time);
                (target->*addSample)(&frame, sizeof(Frame), lastTime);
                written = true;
            }
            queue.drop();
        }
        if (written) {  // the last value, also where the clock let it wait or threw it out
            lastFrame.store(frame);
            hasLastFrame.store(true, std::memory_order_release);
        }
    }

    void reset() override {
        queue.clear();
        hasLastFrame.store(false, std::memory_order_relaxed);
    }

    std::string getLastValueText() const override {
        return hasLastFrame.load(std::memory_order_acquire) ? toText(lastFrame.load())
                                                            : std::string();
    }

  protected:
    virtual std::string toText(const Frame& frame) const = 0;

  private:
    using Status = Kestrova::Utils::Kcom::Synchronization::GNSSTimeStatus;

    SampleQueue<Frame> queue;
    SequenceLocked<Frame> lastFrame;
    std::atomic<bool> hasLastFrame{false};
};
