#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bridge/output/output_factory.h"
#include "capture/cmp_channel.h"
#include "capture/cmp_message.h"
#include "capture/device_types.h"
#include "capture/sequence_locked.h"
#include "capture/traffic_counts.h"
#include "core/mutex.h"
#include "core/performance_counter.h"
#include "setup/node.h"
#include "sync/gnss_sync_manager.h"

/// One capture module that the user has set up: its identity, its type, its channels, its clock,
/// its latest status and its notion of device time.
///
/// The capture thread stores the status and the latest time and publishes the time once a pass; all
/// else happens on the host's thread. The CM ID, by which messages find the device, is a field of
/// the status, and there is no other copy.
class CmpDevice {
  public:
    using GNSSClock = CmpChannel::GNSSClock;
    using GNSSSyncManager = Kestrova::Utils::Kcom::Synchronization::GNSSSyncManager;
    using OutputFactory = CmpChannel::OutputFactory;
    using Node = CmpChannel::Node;
    using ChannelList = std::vector<std::shared_ptr<CmpChannel>>;

    enum class Clock : std::int32_t {
        New = 0,       ///< asks the manager for a new clock
        FromLoad = 1,  ///< none, until `load` finds it
    };

    /// None is owned and all outlive the device.
    struct Surroundings {
        GNSSSyncManager* syncManager = nullptr;
        OutputFactory* outputFactory = nullptr;
        const PerformanceCounter* counter = nullptr;
        /// Called, without a lock held, when the CM ID or the channels have changed; may be empty.
        std::function<void()> onRoutesChanged;
        std::function<void()> onRenamed;                   ///< may be empty
        std::shared_ptr<GoneCounts> goneCounts = nullptr;  ///< of the channels; may be null
    };

    /// A "CAN combo" with ConfigId 0.
    CmpDevice(Surroundings theSurroundings, Clock mode);
    CmpDevice(const CmpDevice&) = delete;
    CmpDevice& operator=(const CmpDevice&) = delete;
    ~CmpDevice();

    std::uint16_t getCmId() const CMP_EXCLUDES(statusLock);
    void setCmId(std::uint16_t cmId);
    /// The CM ID's low four bits; the whole CM ID for a "NeoviFire3".
    std::uint16_t getConfigId() const CMP_EXCLUDES(statusLock);
    /// Below 16 it replaces the low four bits of the CM ID, otherwise the whole.
    void setConfigId(std::uint16_t configId) CMP_EXCLUDES(statusLock);
    std::string getConfigIdText() const;

    DeviceTypeInfo getType() const CMP_EXCLUDES(statusLock);
    /// Replaces the channels, unless the type is what it was. The ConfigId stays as far as its low
    /// 8 bits go; a name that the user hasn't changed follows the type.
    void setType(const DeviceTypeInfo& newType) CMP_EXCLUDES(statusLock);
    /// An unknown id selects "Unknown".
    void setTypeById(std::uint32_t typeId);
    std::string getName() const CMP_EXCLUDES(statusLock);
    void setName(const std::string& newName) CMP_EXCLUDES(statusLock);

    /// "N/A" for a device that isn't connected.
    std::string getSerialNumberText() const;
    std::string getStatusText() const;
    /// Whether a status came within the last 2.0 seconds of the device's own time.
    bool isConnected() const;
    /// The device's own time, extrapolated from the published time on the performance counter.
    DeviceTime getDeviceNow() const CMP_EXCLUDES(timeLock);

    /// Capture thread. A status of another CM ID is dropped: the user has given the device a new
    /// one while the message was on its way.
    void setStatus(const DeviceTime& time, const CmStatus& newStatus) CMP_EXCLUDES(statusLock);
    /// Capture thread: the time of the latest message, which came in at `timeStamp` nanoseconds on
    /// the performance counter. Only in data read is the device heard by it.
    void setLatestTime(const DeviceTime& time, std::int64_t timeStamp, bool isDataRead = true) {
        latestTime.store({time.seconds, time.nanoseconds, timeStamp, isDataRead ? 1 : 0});
    }
    /// Capture thread: the sequence counter of one of the device's frames.
    void noteCounter(std::uint16_t counter) {
        sequence.note(counter);
        frameCount.store(sequence.frames, std::memory_order_relaxed);
        gapCount.store(sequence.gaps, std::memory_order_relaxed);
        missingCount.store(sequence.missing, std::memory_order_relaxed);
    }
    /// Since data read was started. Any thread.
    std::uint64_t getFrames() const { return frameCount.load(std::memory_order_relaxed); }
    std::uint64_t getSequenceGaps() const { return gapCount.load(std::memory_order_relaxed); }
    std::uint64_t getMissingFrames() const { return missingCount.load(std::memory_order_relaxed); }
    SerialNumbers getSerialNumbers() const CMP_EXCLUDES(statusLock);
    /// Gives the clock the device's time as it is now, if the device was heard in this data read: a
    /// clock that starts shall not start with the time of a module that is gone, nor before the
    /// interfaces are open. Both threads.
    void publishTime() CMP_EXCLUDES(timeLock);

    std::shared_ptr<const ChannelList> getChannels() const CMP_EXCLUDES(statusLock);
    /// The first channel with that interface ID, or null.
    std::shared_ptr<CmpChannel> findChannel(std::uint16_t interfaceId) const;
    /// Adds a channel of the kind and with the interface ID that the record names.
    void addChannel(const BusStatus& record) CMP_EXCLUDES(statusLock);
    void resetChannels();
    void createOutputs();
    void createMissingOutputs();
    void releaseOutputs();
    void resetLastTimes();
    /// Takes over what the channels have queued, and then gives the clock the time: of all that was
    /// taken over the clock has heard before it is asked.
    void takeOverChannels();
    void flushChannels();
    /// At each start of the capture thread: the device counts as not heard.
    void forgetHeard();
    /// At the start and at the end of data read.
    void beginCounting() CMP_EXCLUDES(statusLock);
    void endCounting();
    const std::shared_ptr<GNSSClock>& getClock() const { return clock; }
    /// Seconds since the latest message came in; negative: none came in this data read.
    double getSilence() const;

    void save(Node& node) const;
    void load(Node& node);
    void saveChannels(Node& node) const;
    void loadChannels(Node& node);

  private:
    std::uint16_t configIdLocked() const CMP_REQUIRES(statusLock);
    std::shared_ptr<CmpChannel> makeChannel(const BusStatus& record) const;
    void routesChanged() const;

    const Surroundings surroundings;
    /// Set by the constructor or `load`, before anyone else sees the device.
    std::shared_ptr<GNSSClock> clock;

    /// Device time of the latest message, and the moment on the performance counter, in
    /// nanoseconds, at which it came. Written by the capture thread for every frame.
    struct LatestTime {
        std::uint64_t seconds = 0;
        std::int64_t nanoseconds = 0;
        std::int64_t timeStamp = 0;
        std::int64_t isHeard = 0;  ///< whether it came in this data read: 1 or 0
    };
    SequenceLocked<LatestTime> latestTime;
    SequenceCounts sequence;  ///< the capture thread's own
    std::atomic<std::uint64_t> frameCount{0};
    std::atomic<std::uint64_t> gapCount{0};
    std::atomic<std::uint64_t> missingCount{0};

    mutable Mutex timeLock;
    DeviceTime publishedTime CMP_GUARDED_BY(timeLock);
    std::int64_t publishedTimeStamp CMP_GUARDED_BY(timeLock) = 0;

    mutable Mutex statusLock;
    std::string name CMP_GUARDED_BY(statusLock);
    CmStatus status CMP_GUARDED_BY(statusLock);
    SerialNumbers serials CMP_GUARDED_BY(statusLock);
    /// Device time of `status`; at zero a device that never spoke isn't connected.
    DeviceTime statusTime CMP_GUARDED_BY(statusLock);
    DeviceTypeInfo type CMP_GUARDED_BY(statusLock);
    /// In the order of the type's descriptors; the list is replaced as a whole.
    std::shared_ptr<const ChannelList> channels CMP_GUARDED_BY(statusLock);
};
