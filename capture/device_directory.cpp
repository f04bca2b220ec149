#include "capture/device_directory.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <utility>

#include "capture/cmp_device.h"

DeviceDirectory::DeviceDirectory(std::vector<std::shared_ptr<CmpDevice>> devices)
    : deviceList(std::move(devices)) {}

void DeviceDirectory::makeTable() const {
    constexpr std::size_t cmIds = 0x10000;
    if (deviceList.empty()) {
        return;
    }
    deviceByCmId.resize(cmIds);
    std::size_t channelCount = 0;
    for (const auto& device : deviceList) {
        channelLists.push_back(device->getChannels());
        channelCount += channelLists.back()->size();
    }
    slots.resize(std::bit_ceil(2 * channelCount + 2));
    lastSlot = slots.size() - 1;
    shift = 32U - static_cast<unsigned>(std::countr_zero(slots.size()));
    for (std::size_t i = 0; i < deviceList.size(); ++i) {
        CmpDevice* const device = deviceList[i].get();
        const std::uint16_t cmId = device->getCmId();
        if (deviceByCmId[cmId] != nullptr) {
            continue;
        }
        deviceByCmId[cmId] = device;
        for (const auto& channel : *channelLists[i]) {
            insert(keyOf(cmId, channel->getInterfaceId()), {device, channel.get()});
        }
    }
}

void DeviceDirectory::insert(std::uint32_t key, Route route) const {
    std::size_t i = firstSlot(key);
    while (slots[i].key != Slot::unused && slots[i].key != key) {
        i = (i + 1) & lastSlot;
    }
    if (slots[i].key == Slot::unused) {
        slots[i] = {key, route};
    }
}

CmpDevice* DeviceDirectory::findDevice(std::uint16_t cmId) const {
    return deviceByCmId.empty() ? nullptr : deviceByCmId[cmId];
}

/// Whoever reads already shall not have to make the directory. One who begins to just now finds
/// none, or that his isn't the current one any more. The devices are asked for with the lock held,
/// so that an older list never replaces a newer one.
void DirectoryPublisher::publish() {
    const LockGuard guard(lock);
    auto next = inUse.load() != nullptr ? make() : nullptr;
    current.store(next.get());
    std::swap(latest, next);
    if (next) {
        retired.push_back(std::move(next));
    }
}

std::shared_ptr<const DeviceDirectory> DirectoryPublisher::make() const {
    auto made = std::make_shared<const DeviceDirectory>(source());
    if (inUse.load() != nullptr) {
        made->prepare();
    }
    return made;
}

const std::shared_ptr<const DeviceDirectory>& DirectoryPublisher::requireLatest() {
    if (!latest) {
        latest = make();
        current.store(latest.get());
    }
    return latest;
}

void DirectoryPublisher::releaseReplaced() {
    constexpr auto pause = std::chrono::microseconds(50);
    const bool canWait = readerThread.load() != std::this_thread::get_id();
    while (true) {
        DirectoryList unused;  // destroyed without the lock: a device's end may reach the host
        {
            const LockGuard guard(lock);
            unused = takeUnused();
            if (retired.empty() || !canWait) {
                return;
            }
        }
        std::this_thread::sleep_for(pause);
    }
}

DirectoryPublisher::DirectoryList DirectoryPublisher::takeUnused() {
    const DeviceDirectory* used = inUse.load();
    const auto firstUnused = std::partition(retired.begin(), retired.end(),
                                            [&](const auto& old) { return old.get() == used; });
    DirectoryList unused(std::make_move_iterator(firstUnused),
                         std::make_move_iterator(retired.end()));
    retired.erase(firstUnused, retired.end());
    return unused;
}

std::shared_ptr<const DeviceDirectory> DirectoryPublisher::snapshot() {
    const LockGuard guard(lock);
    return requireLatest();
}

DirectoryPublisher::Reader::Reader(DirectoryPublisher& source) : publisher(source) {
    publisher.readerThread.store(std::this_thread::get_id());
    renew();
}

DirectoryPublisher::Reader::~Reader() {
    publisher.inUse.store(nullptr);
    publisher.readerThread.store({});
}

/// Says what it will use, and looks again: a directory that was replaced in between may be gone.
void DirectoryPublisher::Reader::renew() {
    do {
        held = publisher.current.load();
        if (held == nullptr) {  // no share is taken in it: it must not be let go of here
            const LockGuard guard(publisher.lock);
            held = publisher.requireLatest().get();
        }
        publisher.inUse.store(held);
    } while (publisher.current.load() != held);
    held->prepare();
}
