#include "sync/gnss_sync_manager_impl.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>

#include "core/gnss_time.h"
#include "core/string_helper.h"
#include "host/host_error.h"

namespace Kestrova::Utils::Kcom::Synchronization {
namespace {

constexpr double windowLength = 10.0;  // seconds

constexpr const char* listNodeName = "GNSSSyncManager";
constexpr const char* clockNodeName = "GNSSClock";
constexpr const char* idAttribute = "Id";

/// Read as all numbers of the setup: as far as the digits go, and the low 32 bits count. Empty if
/// there is no number.
std::optional<std::uint32_t> readId(const Serialization::Node& clockNode) {
    const auto attribute = clockNode.FindAttribute(idAttribute);
    if (!attribute) {
        return std::nullopt;
    }
    try {
        return static_cast<std::uint32_t>(std::stoull(attribute->GetText()));
    } catch (const std::logic_error&) {
        return std::nullopt;
    }
}

/// The end for a clock that isn't in the list, and for none.
template <typename Clocks>
auto placeOf(const Clocks& clocks, const std::shared_ptr<GNSSClock>& clock) {
    return std::find_if(clocks.begin(), clocks.end(),
                        [&](const auto& entry) { return clock && entry.value == clock; });
}

/// The host wants the square of its factor as the divisor. A factor of 0 reduces nothing.
std::int64_t reduced(std::int64_t samples, std::int64_t factor) {
    return factor == 0 ? samples : gnss_arithmetic::add(samples, factor - 1) / (factor * factor);
}

}  // namespace

std::shared_ptr<GNSSClock> GNSSSyncManagerImpl::CreateClock() {
    return AddClock(clocks.freeKey(), nullptr);
}

std::shared_ptr<GNSSClock> GNSSSyncManagerImpl::GetClock(std::uint32_t id) {
    const Clock* const found = clocks.find(id);
    return found != nullptr ? *found : CreateClock();
}

void GNSSSyncManagerImpl::RemoveClock(std::shared_ptr<GNSSClock>& clock) {
    const auto place = placeOf(clocks, clock);
    if (place == clocks.end()) {
        return;
    }
    if (master == clock) {
        master.reset();
    }
    clocks.erase(place);
    clock.reset();
}

std::uint32_t GNSSSyncManagerImpl::GetClockId(const std::shared_ptr<GNSSClock>& clock) const {
    const auto place = placeOf(clocks, clock);
    return place != clocks.end() ? place->key : unknownClockId;
}

std::int32_t GNSSSyncManagerImpl::GetClockPosition(const std::shared_ptr<GNSSClock>& clock) const {
    const auto place = placeOf(clocks, clock);
    return place != clocks.end() ? static_cast<std::int32_t>(place - clocks.begin()) : -1;
}

GNSSSyncManagerImpl::Clock GNSSSyncManagerImpl::AddClock(std::uint32_t id,
                                                         const Serialization::Node* setup) {
    clocks.append(id, nullptr);
    Clock clock;
    try {
        clock = std::make_shared<GNSSClockSwitchable>(host, counter, notifyHost);
        if (setup != nullptr) {
            clock->Load(*setup);
        }
    } catch (...) {
        clocks.eraseKey(id);
        throw;
    }
    if (Clock* const place = clocks.find(id); place != nullptr) {
        *place = clock;
    }
    return clock;
}

template <typename Action>
void GNSSSyncManagerImpl::ForEachClock(Action action) const {
    for (const auto& entry : clocks) {
        if (entry.value) {
            action(entry.value);
        }
    }
}

void GNSSSyncManagerImpl::Load(const Serialization::Node& node) {
    master.reset();
    std::exchange(clocks, {});  // the end of a clock may make the host call back
    const auto list = node.FindChild(listNodeName);
    if (!list) {
        return;
    }
    const auto count = static_cast<std::uint64_t>(list->GetChildCount());
    for (std::uint64_t i = 0; i < count; ++i) {
        if (const auto child = list->GetChild(i); child && child->GetName() == clockNodeName) {
            LoadClock(*child);
        }
    }
    SelectMaster();
}

void GNSSSyncManagerImpl::LoadClock(const Serialization::Node& node) {
    if (const auto id = readId(node); id && !clocks.contains(*id)) {
        AddClock(*id, &node);
    }
}

void GNSSSyncManagerImpl::Save(Serialization::Node& node) const {
    const auto list = node.AddChild(listNodeName);
    for (const auto& entry : clocks) {
        const auto child = list->AddChild(clockNodeName);
        child->AddAttribute(idAttribute, StringHelper::ToText(entry.key));
        if (entry.value) {
            entry.value->Save(*child);
        }
    }
}

void GNSSSyncManagerImpl::AssignDisplayNames() const {
    struct Uses {
        std::uint32_t all = 0;
        std::uint32_t numbered = 0;
    };
    std::unordered_map<std::string, Uses> names;
    ForEachClock([&](const Clock& clock) { ++names[clock->GetDeviceName()].all; });
    ForEachClock([&](const Clock& clock) {
        std::string name = clock->GetDeviceName();
        if (Uses& uses = names[name]; uses.all > 1) {
            name += " - " + StringHelper::ToText(++uses.numbered);
        }
        clock->SetDisplayName(name);
    });
}

void GNSSSyncManagerImpl::SelectMaster() {
    master.reset();
    ForEachClock([this](const Clock& clock) {
        if (!master && clock->GetSyncMode() == HostGnssDevice::syncModePps &&
            clock->IsClockSource()) {
            master = clock;
        }
    });
}

void GNSSSyncManagerImpl::UpdateDevices(HostGnssDeviceCollection* collection) {
    requireObject(collection);
    AssignDisplayNames();
    ForEachClock([&](const Clock& clock) {
        const std::wstring name = StringHelper::ToWide(clock->GetDisplayName());
        const auto handle = hostObject(collection, &HostGnssDeviceCollection::open, name.c_str());
        clock->AttachTo(handle.get());
    });
    SelectMaster();
    Restart();
}

void GNSSSyncManagerImpl::Restart() {
    ForEachClock([this](const Clock& clock) {
        clock->Reset();
        clock->SetAccepting(accepting);
    });
    const auto data = GetHostData();
    if (const double rate = hostValue(data, &HostData::getSampleRate); rate > 0.0) {
        historySeconds = hostValue(data, &HostData::getHistoryDepth) / rate;
    }
    windowStart = 0.0;
    windowCurrent = 0.0;
    windowLimit = 0.0;
    started = false;
}

void GNSSSyncManagerImpl::RestartWithAcceptAll() {
    accepting = isTrue(hostValue(host, &HostApp::isSetupMode));
    Restart();
}

void GNSSSyncManagerImpl::RestartWithHold() {
    accepting = hostValue(host, &HostApp::getHoldValue) == 0;
    Restart();
}

void GNSSSyncManagerImpl::EnableClocks() {
    accepting = true;
    ForEachClock([](const Clock& clock) { clock->SetAccepting(true); });
}

void GNSSSyncManagerImpl::Tick() {
    if (!started && CanStart()) {
        StartClocks();
    }
    if (started) {
        MoveWindow();
    }
}

bool GNSSSyncManagerImpl::CanStart() const {
    if (!master) {
        return true;
    }
    if (!master->HasTime()) {
        return false;
    }
    if (!HostHasSource()) {
        return true;
    }
    const auto hostClock = hostObject(host, &HostApp::getMasterClock);
    return hostValue(hostClock, &HostMasterClock::getTimeSeconds) > 0.0 ||
           isTrue(hostValue(host, &HostApp::isSetupMode));
}

void GNSSSyncManagerImpl::StartClocks() {
    const bool hostHasSource = HostHasSource();
    ForEachClock([&](const Clock& clock) { clock->Start(hostHasSource); });
    started = true;
}

void GNSSSyncManagerImpl::MoveWindow() {
    const double previous = windowCurrent;
    windowCurrent = GetAcquisitionPosition();
    windowStart = std::max(
        {0.0, windowCurrent - windowLength, std::min(previous, windowCurrent - historySeconds)});
    windowLimit = windowStart + windowLength;
    ForEachClock(
        [this](const Clock& clock) { clock->SetWindow(windowStart, windowCurrent, windowLimit); });
}

double GNSSSyncManagerImpl::GetAcquisitionPosition() const {
    const auto data = GetHostData();
    const auto wraps = static_cast<std::uint32_t>(hostValue(data, &HostData::getWrapCount));
    std::int32_t size = 0;
    std::int32_t position = 0;
    callHost(data, &HostData::getBufferState, &size, &position);
    const double rate = hostValue(data, &HostData::getSampleRate);
    // In 32 bits that wrap around, as the host counts: the position ends after 2147483647 samples.
    const std::uint32_t samples =
        wraps * static_cast<std::uint32_t>(size) + static_cast<std::uint32_t>(position);
    // Without a rate the host hasn't begun to count, and everything waits.
    return rate > 0.0 ? static_cast<std::int32_t>(samples) / rate : 0.0;
}

bool GNSSSyncManagerImpl::HostHasSource() const {
    const auto devices = hostObject(host, &HostApp::getGnssDeviceList);
    return hostValue(devices, &HostGnssDeviceList::getCount) > 0 &&
           !hostValue(devices, &HostGnssDeviceList::getInfo, 0).name.empty();
}

CountedRef<HostData> GNSSSyncManagerImpl::GetHostData() const {
    return hostObject(host, &HostApp::getData);
}

float GNSSSyncManagerImpl::GetRequiredDelay() const {
    float delay = 0.01F;
    ForEachClock([&](const Clock& clock) { delay = std::max(delay, clock->GetDataDelay()); });
    return delay;
}

void GNSSSyncManagerImpl::GetMasterSampleCount(std::uint32_t& low, std::uint32_t& high) const {
    const double elapsed = master && master->HasTime() ? master->GetElapsedTime() : -1.0;
    if (!(elapsed >= 0.0)) {
        low = noSampleCount;
        high = noSampleCount;
        return;
    }
    const auto data = GetHostData();
    std::int64_t samples = std::llround(elapsed * hostValue(data, &HostData::getSampleRate));
    if (low == noSampleCount) {
        samples = reduced(samples, hostValue(data, &HostData::getReductionFactor));
    }
    low = static_cast<std::uint32_t>(samples);
    high = static_cast<std::uint32_t>(static_cast<std::uint64_t>(samples) >> 32U);
}

}  // namespace Kestrova::Utils::Kcom::Synchronization
