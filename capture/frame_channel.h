#pragma once

#include <algorithm>
#include <optional>
#include <span>

#include "capture/bus_frame.h"
#include "capture/cmp_channel.h"
#include "capture/device_time.h"
#include "capture/sample_queue.h"

/// What the two kinds of channel share: a queue of samples, its flush into the output channel, and
/// the last value. `Frame` is the record that the host receives; `addSample` is the operation of
/// the output channel that takes it.
template <class Frame, auto addSample>
class FrameChannel : public CmpChannel {
  public:
    using CmpChannel::CmpChannel;

    bool onData(const DeviceTime& time, std::uint32_t length,
                const std::uint8_t* payload) override {
        if (!holdsFrame<Frame>(payload, length)) {
            return false;
        }
        queue.append([&](auto& samples) { samples.emplace_back(time, payload); });
        return true;
    }

    void queueCollected() override {
        const DataMessage* const first = takeCollected();
        queue.append([first](auto& samples) {
            for (const DataMessage* message = first; message != nullptr; message = message->next) {
                if (holdsFrame<Frame>(message->payload, message->length)) {
                    samples.emplace_back(message->time, message->payload);
                }
            }
        });
    }

    /// Asks the clock about each sample in order: `Valid` is written, at a time that never goes
    /// back within the channel; `Wait` leaves it queued and ends the flush; `Discard` drops it.
    void flush(const std::shared_ptr<GNSSClock>& clock) override {
        if (queue.isEmpty()) {
            return;
        }
        Progress progress;
        while (!progress.waits) {
            const std::span<const Sample> samples = queue.front();
            if (samples.empty()) {
                break;
            }
            flushSome(*clock, samples, progress);
        }
        if (progress.written) {  // the last value, also where the clock let it wait or threw it out
            queue.keepLast(*progress.lookedAt);
        }
    }

    void reset() override { queue.clear(); }

    std::string getLastValueText() const override {
        const std::optional<Sample> sample = queue.getLast();
        return sample ? toText(sample->frame) : std::string();
    }

  protected:
    virtual std::string toText(const Frame& frame) const = 0;

  private:
    using Status = Kestrova::Utils::Kcom::Synchronization::GNSSTimeStatus;
    struct Sample {
        Sample(const DeviceTime& sampleTime, const std::uint8_t* payload) : time(sampleTime) {
            decodeFrame(payload, frame);
        }

        DeviceTime time;
        Frame frame;
    };

    struct Progress {
        bool written = false;
        bool waits = false;
        const Sample* lookedAt = nullptr;
    };

    /// Works through the samples up to one that waits. Each is dropped as soon as it is done with,
    /// so that a host call that raises makes none of them come twice.
    void flushSome(GNSSClock& clock, std::span<const Sample> samples, Progress& progress) {
        OutputChannel* const target = output.get();
        for (const Sample& sample : samples) {
            progress.lookedAt = &sample;
            const auto result = clock.GetTime(toGnssTime(sample.time));
            if (result.status == Status::Wait) {
                progress.waits = true;
                break;
            }
            if (result.status == Status::Valid && target != nullptr) {
                lastTime = std::max(lastTime, result.time);
                (target->*addSample)(&sample.frame, sizeof(Frame), lastTime);
                progress.written = true;
            }
            queue.drop(1);
        }
    }

    SampleQueue<Sample> queue;
};
