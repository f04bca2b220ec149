#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "core/mutex.h"

class CmpChannel;
class CmpDevice;

/// Where the messages of each module and interface go: a picture of the device list, made again at
/// each change. It keeps what it names alive.
///
/// The table of ways is made when a directory is first to be read from, and never changed: while
/// nobody reads, as when a thousand modules are added one by one, it isn't made over and over.
class DeviceDirectory {
  public:
    struct Route {
        CmpDevice* device = nullptr;    ///< null: no device listens to this CM ID
        CmpChannel* channel = nullptr;  ///< null: the device has no such interface
    };

    DeviceDirectory() = default;
    /// `devices` in list order: of two with the same CM ID, or two channels with the same interface
    /// ID in one device, the first gets the messages.
    explicit DeviceDirectory(std::vector<std::shared_ptr<CmpDevice>> devices);

    /// Makes the table of ways, unless it is there; before the first `find`. Any thread.
    void prepare() const {
        std::call_once(prepared, [this] { makeTable(); });
    }
    /// Costs the same with one device as with many.
    Route find(std::uint16_t cmId, std::uint16_t interfaceId) const {
        const std::uint32_t key = keyOf(cmId, interfaceId);
        std::size_t i = firstSlot(key);
        while (slots[i].key != key) {
            if (slots[i].key == Slot::unused) {
                return {findDevice(cmId), nullptr};
            }
            i = (i + 1) & lastSlot;
        }
        return slots[i].route;
    }
    CmpDevice* findDevice(std::uint16_t cmId) const;
    const std::vector<std::shared_ptr<CmpDevice>>& getDevices() const { return deviceList; }

  private:
    /// Slots of an open-addressing table, a power of two and at most half full.
    struct Slot {
        static constexpr std::uint64_t unused = std::uint64_t{1} << 32;

        std::uint64_t key = unused;
        Route route;
    };

    static std::uint32_t keyOf(std::uint16_t cmId, std::uint16_t interfaceId) {
        return std::uint32_t{cmId} << 16 | interfaceId;
    }
    std::size_t firstSlot(std::uint32_t key) const {
        constexpr std::uint32_t spread = 0x9E3779B1;  // 2^32 divided by the golden ratio
        return (key * spread) >> shift;
    }
    void makeTable() const;
    void insert(std::uint32_t key, Route route) const;

    std::vector<std::shared_ptr<CmpDevice>> deviceList;
    mutable std::once_flag prepared;
    // Made by `prepare`.
    /// Kept alive for the routes, as the devices may have got other channels since.
    mutable std::vector<std::shared_ptr<const std::vector<std::shared_ptr<CmpChannel>>>>
        channelLists;
    mutable std::vector<CmpDevice*> deviceByCmId;  ///< by CM ID; empty without devices
    mutable std::vector<Slot> slots = std::vector<Slot>(2);
    mutable std::size_t lastSlot = 1;
    mutable unsigned shift = 31;
};

/// Hands the directory from the thread that changes the device list to the capture thread.
///
/// The capture thread looks at one pointer a message and never waits for a directory while it
/// reads. It announces which one it uses; `releaseReplaced` comes back only when that isn't an old
/// one any more. So what a change took out, devices, channels, clocks and outputs, is destroyed on
/// the thread that made the change, and not while the capture thread is at work on it.
///
/// While nobody reads, a change only drops the directory, and the next one to ask for it makes it:
/// else setting up n modules would make n directories of up to n modules each.
class DirectoryPublisher {
  public:
    using DeviceList = std::vector<std::shared_ptr<CmpDevice>>;

    /// `deviceSource` gives the devices as they are now, on any thread.
    explicit DirectoryPublisher(std::function<DeviceList()> deviceSource)
        : source(std::move(deviceSource)) {}

    /// Replaces the directory, as the devices have changed.
    void publish() CMP_EXCLUDES(lock);
    /// Waits until the capture thread has let go of what was replaced, which takes it one read at
    /// most, and drops it; not to be called with a lock held that the capture thread may take. On
    /// the capture thread itself, which can't wait for itself, what is in use is kept for a later
    /// call.
    void releaseReplaced() CMP_EXCLUDES(lock);
    /// The directory as it is, for any thread.
    std::shared_ptr<const DeviceDirectory> snapshot() CMP_EXCLUDES(lock);

    /// The capture thread's view, between the start and the end of its run.
    class Reader {
      public:
        explicit Reader(DirectoryPublisher& source);
        ~Reader();
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;

        /// The directory to use until the next `renew`.
        const DeviceDirectory& get() const { return *held; }
        bool isReplaced() const {
            return publisher.current.load(std::memory_order_acquire) != held;
        }
        /// Lets go of the directory and takes the latest.
        void renew();

      private:
        DirectoryPublisher& publisher;
        const DeviceDirectory* held = nullptr;
    };

  private:
    using DirectoryList = std::vector<std::shared_ptr<const DeviceDirectory>>;

    std::shared_ptr<const DeviceDirectory> make() const CMP_REQUIRES(lock);
    const std::shared_ptr<const DeviceDirectory>& requireLatest() CMP_REQUIRES(lock);
    /// Takes those of `retired` that the capture thread doesn't use.
    DirectoryList takeUnused() CMP_REQUIRES(lock);

    const std::function<DeviceList()> source;
    Mutex lock;
    std::shared_ptr<const DeviceDirectory> latest CMP_GUARDED_BY(lock);  ///< null: to be made
    DirectoryList retired CMP_GUARDED_BY(lock);
    std::atomic<const DeviceDirectory*> current{nullptr};  ///< what `latest` points at
    std::atomic<const DeviceDirectory*> inUse{nullptr};    ///< what the capture thread looks at
    std::atomic<std::thread::id> readerThread{};
};
