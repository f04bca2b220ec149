#include "capture/cmp_channel.h"

#include "setup/node_values.h"
#include "setup/xml_exception.h"

namespace Xml = Kestrova::Utils::Serialization;

namespace {

constexpr std::int32_t unknownOutput = -1;

}  // namespace

void CmpChannel::setBusStatus(const BusStatus& status) {
    const LockGuard guard(statusLock);
    busStatus = status;
}

BusStatus CmpChannel::getBusStatus() const {
    const LockGuard guard(statusLock);
    return busStatus;
}

std::uint16_t CmpChannel::getInterfaceId() const {
    return static_cast<std::uint16_t>(getBusStatus().interfaceId);
}

std::string CmpChannel::getName() const {
    return output ? output->getName() : std::string();
}

void CmpChannel::setName(const std::string& name) {
    if (output) {
        output->setName(name);
    }
}

void CmpChannel::save(Node& node) const {
    const std::int32_t index =
        output ? static_cast<std::int32_t>(output->getIndex()) : unknownOutput;
    Xml::WriteWithDefault(node, "ChId", index, unknownOutput);
}

void CmpChannel::load(Node& node) {
    std::int32_t index = unknownOutput;
    try {
        index = Xml::ReadWithDefault(node, "ChId", unknownOutput);
    } catch (const Xml::XmlException&) {
        // No number: a new output, as if the key weren't there.
    }
    output = outputFactory->getOrCreateChannel(static_cast<std::uint32_t>(index), outputType(), {});
}
