#include "capture/cmp_device.h"

#include <cstring>
#include <locale>
#include <sstream>
#include <utility>

#include "capture/cmp_channel_canfd.h"
#include "capture/cmp_channel_lin.h"
#include "capture/device_time.h"
#include "setup/node_values.h"
#include "setup/xml_exception.h"

namespace Xml = Kestrova::Utils::Serialization;

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1000000000;
constexpr std::uint16_t configIdMask = 0x0F;

/// `time` moved on by `nanoseconds`, which may be negative.
DeviceTime advanced(DeviceTime time, std::int64_t nanoseconds) {
    std::int64_t seconds = nanoseconds / nanosecondsPerSecond;
    std::int64_t rest = nanoseconds % nanosecondsPerSecond + time.nanoseconds;
    if (rest < 0) {
        rest += nanosecondsPerSecond;
        --seconds;
    } else if (rest >= nanosecondsPerSecond) {
        rest -= nanosecondsPerSecond;
        ++seconds;
    }
    return {time.seconds + static_cast<std::uint64_t>(seconds), static_cast<std::int32_t>(rest)};
}

/// `later` minus `earlier` in seconds; negative if they stand the other way round.
double secondsBetween(const DeviceTime& earlier, const DeviceTime& later) {
    return static_cast<double>(static_cast<std::int64_t>(later.seconds - earlier.seconds)) +
           (later.nanoseconds - earlier.nanoseconds) / 1e9;
}

/// The value of a key; the default also where the text isn't a number.
std::int32_t readNumber(const Xml::Node& node, const std::string& key, std::int32_t defaultValue) {
    try {
        return Xml::ReadWithDefault(node, key, defaultValue);
    } catch (const Xml::XmlException&) {
        return defaultValue;
    }
}

}  // namespace

CmpDevice::CmpDevice(Surroundings theSurroundings, Clock mode)
    : surroundings(std::move(theSurroundings)), channels(std::make_shared<const ChannelList>()) {
    if (mode != Clock::FromLoad) {
        clock = surroundings.syncManager->CreateClock();
    }
    setType(deviceTypeById(DeviceTypeInfo::canComboId));
    const LockGuard guard(statusLock);
    status.cmId = static_cast<std::uint16_t>(status.cmId & ~configIdMask);
}

CmpDevice::~CmpDevice() {
    if (clock) {
        surroundings.syncManager->RemoveClock(clock);
    }
}

std::uint16_t CmpDevice::getCmId() const {
    const LockGuard guard(statusLock);
    return status.cmId;
}

void CmpDevice::setCmId(std::uint16_t cmId) {
    {
        const LockGuard guard(statusLock);
        status.cmId = cmId;
    }
    setType(getType());
    setConfigId(getConfigId());
}

std::uint16_t CmpDevice::configIdLocked() const {
    return type.typeId == DeviceTypeInfo::neoviFire3Id
               ? status.cmId
               : static_cast<std::uint16_t>(status.cmId & configIdMask);
}

std::uint16_t CmpDevice::getConfigId() const {
    const LockGuard guard(statusLock);
    return configIdLocked();
}

void CmpDevice::setConfigId(std::uint16_t configId) {
    {
        const LockGuard guard(statusLock);
        status.cmId = configId <= configIdMask
                          ? static_cast<std::uint16_t>((status.cmId & ~configIdMask) | configId)
                          : configId;
    }
    routesChanged();
}

std::string CmpDevice::getConfigIdText() const {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << "0x" << std::hex << std::uppercase << getConfigId();
    return text.str();
}

DeviceTypeInfo CmpDevice::getType() const {
    const LockGuard guard(statusLock);
    return type;
}

void CmpDevice::setType(const DeviceTypeInfo& newType) {
    if (newType.typeId == getType().typeId) {
        return;
    }
    auto newChannels = std::make_shared<ChannelList>();
    for (const std::uint32_t descriptor : newType.channelDescriptors) {
        BusStatus record;
        record.cmType = static_cast<std::uint8_t>(descriptor);
        record.cmId = newType.baseId;
        record.interfaceId = descriptor >> 16;
        newChannels->push_back(makeChannel(record));
    }
    std::shared_ptr<const ChannelList>
        oldChannels;  // goes when the capture thread has let go of it
    {
        const LockGuard guard(statusLock);
        const auto configId = static_cast<std::uint8_t>(configIdLocked());
        status.cmId = static_cast<std::uint16_t>(newType.baseId + configId);
        if (name == type.fullName) {
            name = newType.fullName;
        }
        type = newType;
        oldChannels = std::exchange(channels, std::move(newChannels));
    }
    routesChanged();
}

void CmpDevice::setTypeById(std::uint32_t typeId) {
    setType(deviceTypeById(typeId));
}

std::string CmpDevice::getName() const {
    const LockGuard guard(statusLock);
    return name;
}

void CmpDevice::setName(const std::string& newName) {
    {
        const LockGuard guard(statusLock);
        name = newName;
    }
    if (clock) {
        clock->SetDeviceName(newName);
    }
    if (surroundings.onRenamed) {
        surroundings.onRenamed();
    }
}

std::string CmpDevice::getSerialNumberText() const {
    if (!isConnected()) {
        return "N/A";
    }
    const LockGuard guard(statusLock);
    const std::size_t length = strnlen(status.serialText, sizeof status.serialText);
    return length != 0 ? std::string(status.serialText, length)
                       : std::to_string(status.serialNumber);
}

std::string CmpDevice::getStatusText() const {
    return isConnected() ? "Connected" : "Not connected";
}

bool CmpDevice::isConnected() const {
    constexpr double longestSilence = 2.0;  // seconds
    const DeviceTime now = getDeviceNow();
    const LockGuard guard(statusLock);
    return longestSilence > secondsBetween(statusTime, now);
}

DeviceTime CmpDevice::getDeviceNow() const {
    const LockGuard guard(timeLock);
    return advanced(publishedTime, surroundings.counter->getNanoseconds() - publishedTimeStamp);
}

void CmpDevice::setStatus(const DeviceTime& time, const CmStatus& newStatus) {
    const LockGuard guard(statusLock);
    if (status.cmId == newStatus.cmId) {
        status = newStatus;
        statusTime = time;
        serials.note(newStatus.serialNumber);
    }
}

SerialNumbers CmpDevice::getSerialNumbers() const {
    const LockGuard guard(statusLock);
    return serials;
}

void CmpDevice::publishTime() {
    LatestTime latest;
    DeviceTime time;
    {
        const LockGuard guard(timeLock);
        latest = latestTime.load();
        time = {latest.seconds, static_cast<std::int32_t>(latest.nanoseconds)};
        publishedTime = time;
        publishedTimeStamp = latest.timeStamp;
    }
    if (clock && latest.isHeard != 0) {
        const std::int64_t now = surroundings.counter->getNanoseconds();
        clock->SetTime(toGnssTime(advanced(time, now - latest.timeStamp)));
    }
}

std::shared_ptr<const CmpDevice::ChannelList> CmpDevice::getChannels() const {
    const LockGuard guard(statusLock);
    return channels;
}

std::shared_ptr<CmpChannel> CmpDevice::findChannel(std::uint16_t interfaceId) const {
    const auto all = getChannels();
    for (const auto& channel : *all) {
        if (channel->getInterfaceId() == interfaceId) {
            return channel;
        }
    }
    return nullptr;
}

std::shared_ptr<CmpChannel> CmpDevice::makeChannel(const BusStatus& record) const {
    std::shared_ptr<CmpChannel> channel;
    if (record.cmType == ChannelKind::lin) {
        channel = std::make_shared<CmpChannelLin>(surroundings.outputFactory);
    } else {
        channel = std::make_shared<CmpChannelCanfd>(surroundings.outputFactory);
    }
    channel->setBusStatus(record);
    channel->setGoneCounts(surroundings.goneCounts);
    return channel;
}

void CmpDevice::addChannel(const BusStatus& record) {
    auto channel = makeChannel(record);
    {
        const LockGuard guard(statusLock);
        auto longer = std::make_shared<ChannelList>(*channels);
        longer->push_back(std::move(channel));
        channels = std::move(longer);
    }
    routesChanged();
}

void CmpDevice::routesChanged() const {
    if (surroundings.onRoutesChanged) {
        surroundings.onRoutesChanged();
    }
}

void CmpDevice::resetChannels() {
    const auto all = getChannels();
    for (const auto& channel : *all) {
        channel->reset();
    }
}

void CmpDevice::createOutputs() {
    const auto all = getChannels();
    for (const auto& channel : *all) {
        channel->createOutput();
    }
}

void CmpDevice::createMissingOutputs() {
    const auto all = getChannels();
    for (const auto& channel : *all) {
        if (!channel->getOutput()) {
            channel->createOutput();
        }
    }
}

void CmpDevice::releaseOutputs() {
    const auto all = getChannels();
    for (const auto& channel : *all) {
        channel->releaseOutput();
    }
}

void CmpDevice::resetLastTimes() {
    const auto all = getChannels();
    for (const auto& channel : *all) {
        channel->resetLastTime();
    }
}

void CmpDevice::forgetHeard() {
    LatestTime latest = latestTime.load();
    latest.isHeard = 0;
    latestTime.store(latest);
}

void CmpDevice::beginCounting() {
    sequence = {};
    frameCount = 0;
    gapCount = 0;
    missingCount = 0;
    {
        const LockGuard guard(statusLock);
        serials = {};
    }
    const auto all = getChannels();
    for (const auto& channel : *all) {
        channel->beginCounting();
    }
}

void CmpDevice::endCounting() {
    if (!clock) {
        return;
    }
    const auto all = getChannels();
    for (const auto& channel : *all) {
        channel->endCounting(clock);
    }
}

double CmpDevice::getSilence() const {
    const LatestTime latest = latestTime.load();
    return latest.isHeard == 0
               ? -1.0
               : static_cast<double>(surroundings.counter->getNanoseconds() - latest.timeStamp) /
                     static_cast<double>(nanosecondsPerSecond);
}

void CmpDevice::takeOverChannels() {
    const auto all = getChannels();
    for (const auto& channel : *all) {
        if (channel->hasHandedOver()) {
            channel->takeOver();
        }
    }
    publishTime();
}

void CmpDevice::flushChannels() {
    if (!clock) {
        return;
    }
    publishTime();
    const auto all = getChannels();
    for (const auto& channel : *all) {
        if (channel->hasTakenOver()) {
            channel->flush(clock);
        }
    }
}

void CmpDevice::save(Node& node) const {
    Xml::ForceWrite(node, "Id", getCmId());
    Xml::ForceWrite(node, "ClockId",
                    static_cast<std::uint64_t>(surroundings.syncManager->GetClockId(clock)));
    Xml::ForceWrite(node, "DeviceTypeId", static_cast<std::uint64_t>(getType().typeId));
    Xml::ForceWrite(node, "ConfigId", getConfigId());
    Xml::ForceWrite(node, "SerialNumber", getSerialNumberText());
    Xml::ForceWrite(node, "Name", getName());
}

void CmpDevice::load(Node& node) {
    clock = surroundings.syncManager->GetClock(
        static_cast<std::uint32_t>(readNumber(node, "ClockId", 0)));
    setTypeById(static_cast<std::uint32_t>(readNumber(node, "DeviceTypeId", 0)));
    setConfigId(static_cast<std::uint16_t>(readNumber(node, "ConfigId", 0)));
    setName(Xml::ReadWithDefault(node, "Name", getName()));
}

void CmpDevice::saveChannels(Node& node) const {
    const auto list = node.AddChild("Channels");
    const auto all = getChannels();
    for (const auto& channel : *all) {
        channel->save(*list->AddChild("Channel"));
    }
}

void CmpDevice::loadChannels(Node& node) {
    const auto list = node.FindChild("Channels");
    if (!list) {
        return;
    }
    const auto all = getChannels();
    for (std::size_t i = 0; i < all->size(); ++i) {
        if (const auto child = list->GetChild(static_cast<std::uint64_t>(i))) {
            (*all)[i]->load(*child);
        }
    }
}
