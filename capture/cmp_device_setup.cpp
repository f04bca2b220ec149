#include "capture/cmp_device.h"
#include "setup/node_values.h"
#include "setup/xml_exception.h"

namespace Xml = Kestrova::Utils::Serialization;

namespace {

/// The value of a key; the default also where the text isn't a number.
std::int32_t readNumber(const Xml::Node& node, const std::string& key, std::int32_t defaultValue) {
    try {
        return Xml::ReadWithDefault(node, key, defaultValue);
    } catch (const Xml::XmlException&) {
        return defaultValue;
    }
}

}  // namespace

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
