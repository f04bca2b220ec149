#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "capture/cmp_device.h"
#include "capture/device_container.h"
#include "capture/device_directory.h"

/// The capture modules that the user has set up, in his order.
///
/// The list belongs to the host's thread. After each change of the list, of a CM ID or of a
/// device's channels it publishes a new directory, on which the capture thread finds its way (see
/// `DirectoryPublisher`); when the change returns, nothing that it took out is in use any more.
class CmpDevices final : public DeviceContainer<std::shared_ptr<CmpDevice>> {
  public:
    using GNSSSyncManager = CmpDevice::GNSSSyncManager;
    using OutputFactory = CmpDevice::OutputFactory;
    using Node = CmpDevice::Node;

    /// None is owned and all outlive the list.
    CmpDevices(GNSSSyncManager* manager, OutputFactory* factory,
               const PerformanceCounter& performanceCounter);
    ~CmpDevices() override;

    /// The first device with that CM ID, or null.
    std::shared_ptr<CmpDevice> findByCmId(std::uint16_t cmId) const;
    DirectoryPublisher& getDirectory() { return directory; }
    /// Goes up with each change of the list, of what is set up in it and of the channels' outputs.
    std::uint64_t getChanges() const { return changes.load(); }

    void resetChannels();
    void createOutputs();
    /// For the channels that have none.
    void createMissingOutputs();
    void releaseOutputs();
    void resetLastTimes();
    /// At the end of `resetLastTimes` at the start of an acquisition.
    virtual void onLastTimesReset() {}
    /// Before the clocks move on: takes over what the channels have queued and gives each clock the
    /// time. What comes in later is for the next call; so no sample is judged by a clock that
    /// hasn't heard of the module, or not of the jump of its time.
    void takeOver();
    /// Gives each clock the time and writes what was taken over and is due.
    void flushTakenOver();
    /// Both in one, where no clock moves on in between.
    void flushAll();
    /// At each start of the capture thread; at the start and at the end of data read. With the
    /// thread stopped.
    void forgetHeard();
    void beginCounting();
    void endCounting();
    const GoneCounts& getGoneCounts() const { return *goneCounts; }

    void saveDevices(Node& node) const;
    /// Replaces the list. A device whose values can't be read at all ends the load with that error;
    /// those before it stay.
    void loadDevices(Node& node);
    void saveChannels(Node& node) const;
    /// Binds the channels to their outputs; devices that the setup doesn't know get new ones.
    void loadChannels(Node& node);

  protected:
    std::shared_ptr<CmpDevice> createForLoad() override;
    std::shared_ptr<CmpDevice> createNew() override;
    void onItemsChanged() override { publishDirectory(); }

  private:
    std::shared_ptr<CmpDevice> create(CmpDevice::Clock mode);
    void publishDirectory() CMP_EXCLUDES(listLock);
    std::shared_ptr<Node> addItemNode(Node& list, std::size_t position) const;

    GNSSSyncManager* const syncManager;
    OutputFactory* const outputFactory;
    const PerformanceCounter& counter;
    std::atomic<std::uint64_t> changes = 0;
    const std::shared_ptr<GoneCounts> goneCounts = std::make_shared<GoneCounts>();
    DirectoryPublisher directory;  // with its own synchronisation
};
