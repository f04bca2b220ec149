#pragma once

#include <deque>
#include <mutex>

#include "bridge/output/output_factory.h"
#include "bridge/output/plain_output_channel.h"
#include "capture/capture_port.h"
#include "sync/gnss_sync_manager.h"
#include "tests/support/manual_counter.h"

/// Stand-ins for what surrounds the capture core. They record what was asked of them.

/// One scripted read: its result, and the frame if there is one.
struct ScriptedRead {
    std::int32_t result = CaptureHandle::timeout;
    std::vector<std::uint8_t> frame;
    std::int64_t receivedAt = CapturedFrame::notStamped;
};

/// An interface whose reads are a script; behind its end comes what `endless` gives, or else every
/// read times out.
struct ScriptedInterface {
    std::string name;
    std::deque<ScriptedRead> reads;
    std::function<ScriptedRead()> endless;
    bool openFails = false;
    bool netFails = false;
    std::uint64_t dropped = 0;
    std::optional<std::uint64_t> received = {};
    std::uint64_t waiting = 0;
    std::vector<std::string> repeated;
    bool isLate = false;  ///< not listed: what `openLate` gives
};

class ScriptedPort final : public CapturePort {
  public:
    std::vector<ScriptedInterface> interfaces;
    bool listFails = false;
    std::atomic<int> openHandles = 0;
    std::vector<std::string> calls;  ///< "name:result" of each scripted read, and what was opened
    /// Called before each read; may be empty.
    std::function<void()> onRead;

    void add(const std::string& name, std::initializer_list<std::vector<std::uint8_t>> frames) {
        interfaces.emplace_back().name = name;
        for (const auto& frame : frames) {
            interfaces.back().reads.push_back({CaptureHandle::gotFrame, frame});
        }
    }

    std::int32_t findAllDevices(std::vector<CaptureInterface>& devices, std::string&) override {
        for (const auto& entry : interfaces) {
            if (!entry.isLate) {
                devices.push_back({entry.name, "about " + entry.name, entry.repeated});
            }
        }
        return listFails ? -1 : 0;
    }

    std::unique_ptr<CaptureHandle> openLate(const LateCapture& wanted) override {
        for (std::size_t i = 0; i < interfaces.size(); ++i) {
            if (interfaces[i].isLate) {
                calls.push_back("late beside " + std::to_string(wanted.opened.size()));
                return std::make_unique<Handle>(*this, i);
            }
        }
        return nullptr;
    }

    std::unique_ptr<CaptureHandle> openLive(const std::string& name, std::int32_t snapLength,
                                            bool promiscuous, std::int32_t timeoutMs,
                                            std::string& error) override {
        calls.push_back("open " + name + ' ' + std::to_string(snapLength) + ' ' +
                        std::to_string(promiscuous) + ' ' + std::to_string(timeoutMs));
        for (std::size_t i = 0; i < interfaces.size(); ++i) {
            if (interfaces[i].name == name && !interfaces[i].openFails) {
                return std::make_unique<Handle>(*this, i);
            }
        }
        error = "can't open " + name;
        return nullptr;
    }

    std::int32_t lookupNet(const std::string& name, std::uint32_t& net, std::uint32_t& mask,
                           std::string& error) override {
        const bool fails =
            std::any_of(interfaces.begin(), interfaces.end(),
                        [&](const auto& entry) { return entry.name == name && entry.netFails; });
        error = fails ? "no net" : error;
        net = 0x0A;
        mask = 0xFF;
        return fails ? -1 : 0;
    }

  private:
    class Handle final : public CaptureHandle {
      public:
        Handle(ScriptedPort& owner, std::size_t index) : port(owner), position(index) {
            ++port.openHandles;
        }
        ~Handle() override { --port.openHandles; }
        SystemCounts getCounts() override {
            const ScriptedInterface& of = port.interfaces[position];
            return {of.received, of.waiting, of.dropped};
        }

        std::int32_t next(CapturedFrame& frame) override {
            if (port.onRead) {
                port.onRead();
            }
            ScriptedInterface& source = port.interfaces[position];
            ScriptedRead read;
            if (!source.reads.empty()) {
                read = std::move(source.reads.front());
                source.reads.pop_front();
            } else if (source.endless) {
                read = source.endless();
            }
            if (!source.endless) {
                port.calls.push_back(source.name + ':' + std::to_string(read.result));
            }
            if (read.result == gotFrame) {
                // A block of its own, exactly as long as the frame: a read beyond it is seen.
                held = std::make_unique<std::uint8_t[]>(read.frame.size());
                std::copy(read.frame.begin(), read.frame.end(), held.get());
                frame = {held.get(), static_cast<std::uint32_t>(read.frame.size()),
                         read.receivedAt};
            }
            return read.result;
        }

      private:
        ScriptedPort& port;
        std::size_t position;
        std::unique_ptr<std::uint8_t[]> held;
    };
};

/// A clock that answers from a script; behind its end, and without one, device time is host time.
class FakeClock final : public Kestrova::Utils::Kcom::Synchronization::GNSSClock {
  public:
    using Result = Kestrova::Utils::Kcom::Synchronization::GNSSTimeResult;
    using Status = Kestrova::Utils::Kcom::Synchronization::GNSSTimeStatus;

    std::deque<Result> script;
    GNSSTime lastAsked;
    std::string deviceName;
    /// Gives the answers in place of the script; may be empty.
    std::function<Result(GNSSTime)> answers;

    void SetTime(const GNSSTime deviceTime) override {
        const std::lock_guard guard(lock);
        lastSet = deviceTime;
    }
    GNSSTime getLastSet() const {
        const std::lock_guard guard(lock);
        return lastSet;
    }
    Result GetTime(const GNSSTime deviceTime) override {
        lastAsked = deviceTime;
        if (answers) {
            return answers(deviceTime);
        }
        if (script.empty()) {
            return {Status::Valid, deviceTime - GNSSTime()};
        }
        const Result result = script.front();
        script.pop_front();
        return result;
    }
    void SetDeviceName(const std::string& name) override { deviceName = name; }
    std::string GetDeviceName() const override { return deviceName; }
    std::string GetDisplayName() const override { return deviceName; }

  private:
    mutable std::mutex lock;  ///< both threads set the time
    GNSSTime lastSet;
};

class FakeSyncManager final : public Kestrova::Utils::Kcom::Synchronization::GNSSSyncManager {
  public:
    using GNSSClock = Kestrova::Utils::Kcom::Synchronization::GNSSClock;

    std::vector<std::shared_ptr<FakeClock>> clocks;  ///< by id; null when removed
    std::atomic<int> foreignCalls = 0;  ///< made on another thread than that of the construction
    std::function<void(FakeClock&)> onCreate = [](FakeClock&) {};

    std::shared_ptr<GNSSClock> CreateClock() override {
        noteThread();
        const auto place = std::find(clocks.begin(), clocks.end(), nullptr);
        return place == clocks.end() ? clocks.emplace_back(makeClock()) : *place = makeClock();
    }
    std::shared_ptr<GNSSClock> GetClock(std::uint32_t id) override {
        return id < clocks.size() && clocks[id] ? clocks[id] : CreateClock();
    }
    void RemoveClock(std::shared_ptr<GNSSClock>& clock) override {
        noteThread();
        if (const std::uint32_t id = GetClockId(clock); id != unknownClockId) {
            clocks[id].reset();
            clock.reset();
        }
    }
    std::uint32_t GetClockId(const std::shared_ptr<GNSSClock>& clock) const override {
        const auto place = std::find(clocks.begin(), clocks.end(), clock) - clocks.begin();
        return place == std::ssize(clocks) ? unknownClockId : static_cast<std::uint32_t>(place);
    }
    /// Has a new clock for each id that is in use, as a manager that reads its setup.
    void reload() {
        for (auto& clock : clocks) {
            clock = clock ? makeClock() : nullptr;
        }
    }
    std::ptrdiff_t liveClocks() const {
        return std::ssize(clocks) - std::count(clocks.begin(), clocks.end(), nullptr);
    }

  private:
    std::shared_ptr<FakeClock> makeClock() const {
        auto clock = std::make_shared<FakeClock>();
        onCreate(*clock);
        return clock;
    }
    void noteThread() { foreignCalls += std::this_thread::get_id() != ownThread ? 1 : 0; }

    const std::thread::id ownThread = std::this_thread::get_id();
};

class FakeOutput final : public Kestrova::Utils::Kcom::OutputChannel::PlainOutputChannel {
  public:
    struct Sample {
        bool variant = false;
        std::vector<std::uint8_t> bytes;
        double time = 0.0;
    };

    std::uint32_t index = 0;
    std::string name;
    bool used = true;
    std::vector<Sample> samples;
    std::size_t failAt = SIZE_MAX;  ///< with so many samples there, the next addition fails once
    std::function<void()> onAdd;    ///< called once, when the next sample is added; may be empty
    std::string description;        ///< rate and attribute, as they were set

    std::uint32_t getIndex() const override { return index; }
    void setName(const std::string& newName) override { name = newName; }
    std::string getName() const override { return name; }
    void setUsed(bool newUsed) override { used = newUsed; }
    bool isUsed() const override { return used; }
    void setExpectedRate(float rate) override { description += std::to_string(std::lround(rate)); }
    void setIntAttributeA(std::int32_t value) override {
        description += '/' + std::to_string(value);
    }
    void addAsynchronousSample(const void* data, std::uint64_t size, double time) override {
        add(false, data, size, time);
    }
    void addVariantSample(const void* data, std::uint64_t size, double time) override {
        add(true, data, size, time);
    }

  private:
    void add(bool variant, const void* data, std::uint64_t size, double time) {
        if (samples.size() == failAt) {
            failAt = SIZE_MAX;
            throw std::runtime_error("host call failed");
        }
        if (const auto action = std::exchange(onAdd, nullptr)) {
            action();
        }
        const auto* bytes = static_cast<const std::uint8_t*>(data);
        samples.push_back({variant, {bytes, bytes + size}, time});
    }
};

class FakeOutputFactory final : public Kestrova::Utils::Kcom::OutputChannel::OutputFactory {
  public:
    using OutputChannel = Kestrova::Utils::Kcom::OutputChannel::OutputChannel;
    using OutputChannelType = Kestrova::Utils::Kcom::OutputChannel::OutputChannelType;

    std::vector<std::shared_ptr<FakeOutput>> channels;

    std::shared_ptr<OutputChannel> createChannel(OutputChannelType, const Init& init) override {
        auto channel = std::make_shared<FakeOutput>();
        channel->index = static_cast<std::uint32_t>(channels.size());
        channels.push_back(channel);
        if (init) {
            init(channel);
        }
        return channel;
    }
    std::shared_ptr<OutputChannel> getOrCreateChannel(std::uint32_t index, OutputChannelType type,
                                                      const Init& init) override {
        return index < channels.size() ? channels[index] : createChannel(type, init);
    }
    void removeChannel(const std::shared_ptr<OutputChannel>&) override {}
    void setChannelGroupName(const std::vector<std::int32_t>&, const std::string&) override {}
    void beginMultipleMount() override {}
    std::int32_t endMultipleMount() override { return 0; }
};
