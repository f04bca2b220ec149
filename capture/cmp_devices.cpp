#include "capture/cmp_devices.h"

#include "capture/freed_memory.h"
#include "core/string_helper.h"

using Kestrova::Utils::Kcom::StringHelper;

CmpDevices::CmpDevices(GNSSSyncManager* manager, OutputFactory* factory,
                       const PerformanceCounter& performanceCounter)
    : DeviceContainer("CmpDevices", "CmpDevice"),
      syncManager(manager),
      outputFactory(factory),
      counter(performanceCounter),
      directory([this] { return list(); }) {}

CmpDevices::~CmpDevices() = default;

std::shared_ptr<CmpDevice> CmpDevices::create(CmpDevice::Clock mode) {
    return std::make_shared<CmpDevice>(
        CmpDevice::Surroundings{syncManager, outputFactory, &counter,
                                [this] { publishDirectory(); }, [this] { ++changes; }, goneCounts},
        mode);
}

std::shared_ptr<CmpDevice> CmpDevices::createForLoad() {
    return create(CmpDevice::Clock::FromLoad);
}

std::shared_ptr<CmpDevice> CmpDevices::createNew() {
    return create(CmpDevice::Clock::New);
}

void CmpDevices::publishDirectory() {
    directory.publish();
    directory.releaseReplaced();
    ++changes;
}

std::shared_ptr<CmpDevice> CmpDevices::findByCmId(std::uint16_t cmId) const {
    for (const auto& device : list()) {
        if (device->getCmId() == cmId) {
            return device;
        }
    }
    return nullptr;
}

void CmpDevices::resetChannels() {
    for (const auto& device : list()) {
        device->resetChannels();
    }
}

void CmpDevices::createOutputs() {
    for (const auto& device : list()) {
        device->createOutputs();
    }
    ++changes;
}

void CmpDevices::createMissingOutputs() {
    for (const auto& device : list()) {
        device->createMissingOutputs();
    }
    ++changes;
}

void CmpDevices::releaseOutputs() {
    for (const auto& device : list()) {
        device->releaseOutputs();
    }
    ++changes;
}

void CmpDevices::resetLastTimes() {
    for (const auto& device : list()) {
        device->resetLastTimes();
    }
    onLastTimesReset();
}

void CmpDevices::forgetHeard() {
    for (const auto& device : list()) {
        device->forgetHeard();
    }
}

void CmpDevices::beginCounting() {
    goneCounts->clear();
    for (const auto& device : list()) {
        device->beginCounting();
    }
}

void CmpDevices::endCounting() {
    for (const auto& device : list()) {
        device->endCounting();
    }
}

void CmpDevices::takeOver() {
    const auto held = directory.snapshot();
    for (const auto& device : held->getDevices()) {
        device->takeOverChannels();
    }
}

void CmpDevices::flushAll() {
    takeOver();
    flushTakenOver();
}

void CmpDevices::flushTakenOver() {
    const auto held = directory.snapshot();
    for (const auto& device : held->getDevices()) {
        device->flushChannels();
    }
    FreedMemory::giveBack();
}

std::shared_ptr<CmpDevices::Node> CmpDevices::addItemNode(Node& list, std::size_t position) const {
    auto item = list.AddChild(itemNodeName);
    item->AddAttribute("Id", StringHelper::ToText(static_cast<std::uint64_t>(position)));
    return item;
}

void CmpDevices::saveDevices(Node& node) const {
    const auto listNode = node.AddChild(listNodeName);
    std::size_t position = 0;
    for (const auto& device : list()) {
        device->save(*addItemNode(*listNode, position++));
    }
}

void CmpDevices::loadDevices(Node& node) {
    clear();
    const auto listNode = node.FindChild(listNodeName);
    if (!listNode) {
        return;
    }
    const auto count = static_cast<std::uint64_t>(listNode->GetChildCount());
    for (std::uint64_t i = 0; i < count; ++i) {
        if (const auto child = listNode->GetChild(i)) {
            auto device = createForLoad();
            device->load(*child);
            appendLoaded(std::move(device));
        }
    }
}

void CmpDevices::saveChannels(Node& node) const {
    const auto listNode = node.AddChild(listNodeName);
    std::size_t position = 0;
    for (const auto& device : list()) {
        device->saveChannels(*addItemNode(*listNode, position++));
    }
}

void CmpDevices::loadChannels(Node& node) {
    ++changes;
    const auto listNode = node.FindChild(listNodeName);
    if (!listNode) {
        createOutputs();
        return;
    }
    std::uint64_t position = 0;
    for (const auto& device : list()) {
        if (const auto child = listNode->GetChild(position++)) {
            device->loadChannels(*child);
        } else {
            device->createOutputs();
        }
    }
}
