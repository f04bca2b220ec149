#include "bridge/output/output_channel_impl.h"

#include <limits>
#include <stdexcept>

#include "bridge/output/axis_properties.h"
#include "bridge/output/axis_writing.h"
#include "bridge/output/output_factory_impl.h"
#include "setup/kestrova_kcom_node.h"
#include "setup/node_values.h"

namespace Kestrova::Utils::Kcom::OutputChannel {

using Serialization::ReadBoolWithDefault;
using Serialization::WriteBoolWithDefault;

OutputChannelImpl::~OutputChannelImpl() {
    attachHostChannel(nullptr);
}

void OutputChannelImpl::attachHostChannel(CountedRef<HostChannel> channel) {
    hostChannel = std::move(channel);
    if (hostChannel) {
        setName(defaultName);
        setUnit(defaultUnit);
        setColor(defaultColor);
        properties.attachSet(hostObject(hostChannel, &HostChannel::getPropertySet));
    } else {
        properties.detachSet();
    }
    selectAddData();
}

void OutputChannelImpl::setDefaultName(const std::string& name) {
    if (isAutomaticName()) {
        setName(name);
    }
    defaultName = name;
}

void OutputChannelImpl::setDefaultUnit(const std::string& unit) {
    if (isAutomaticUnit()) {
        setUnit(unit);
    }
    defaultUnit = unit;
}

void OutputChannelImpl::setDefaultColor(std::uint32_t color) {
    if (isAutomaticColor()) {
        setColor(color);
    }
    defaultColor = color;
}

void OutputChannelImpl::setChannelIndices(const std::vector<std::int32_t>& indices) {
    static constexpr std::int32_t format = 2;
    const auto count = static_cast<std::int32_t>(indices.size());
    set(&HostChannel::setIndexFormat, format);
    set(&HostChannel::setIndexCount, count + 2);
    callHost(hostChannel, &HostChannel::setIndices, indices.data(), count);
}

template <typename Change>
void OutputChannelImpl::changeBuffers(const Change& change) {
    static constexpr std::int32_t releasing = 1;
    const bool releases = remountMode == releasing;
    if (releases) {
        callHost(ext(), &HostChannelExt::releaseBuffers);
    }
    change();
    if (releases) {
        allocateBuffers();
    }
}

void OutputChannelImpl::setExpectedRate(float samplesPerSecond) {
    changeBuffers([&] { set(&HostChannel::setExpectedRate, samplesPerSecond); });
}

void OutputChannelImpl::setBufferAttribute(std::uint32_t value) {
    changeBuffers([&] { set(&HostChannel::setBufferAttribute, value); });
}

void OutputChannelImpl::allocateBuffers() {
    callHost(ext(), &HostChannelExt::allocateBuffers, hostTrue);
}

void OutputChannelImpl::makeArray(std::initializer_list<const AxisProperties*> axes, bool flag) {
    static constexpr std::uint64_t mostElements = std::numeric_limits<std::int32_t>::max();
    for (const AxisProperties* axis : axes) {
        if (axis->getSize() > mostElements) {
            raiseHostError(HostCode::invalidArgument);
        }
    }
    changeBuffers([&] {
        setFlag(&HostChannel::setIsArray, true);
        const CountedRef<HostArrayInfo> info = hostObject(hostChannel, &HostChannel::getArrayInfo);
        callHost(info, &HostArrayInfo::setFlag, toHostBool(flag));
        callHost(info, &HostArrayInfo::setDimensionCount, static_cast<std::int32_t>(axes.size()));
        std::int32_t dimension = 0;
        for (const AxisProperties* axis : axes) {
            callHost(info, &HostArrayInfo::setDimensionSize, dimension++,
                     static_cast<std::int32_t>(axis->getSize()));
        }
        callHost(info, &HostArrayInfo::commitDimensions);
        dimension = 0;
        for (const AxisProperties* axis : axes) {
            writeAxis(*axis, hostObject(info, &HostArrayInfo::getAxis, dimension++));
        }
    });
}

void OutputChannelImpl::applySetup(std::shared_ptr<Node>& node) {
    if (const auto own = node->FindChild("OutputChannel")) {
        if (const auto place = own->FindChild("Index")) {
            place->SetText(getChannelIdText());
        }
    }
    loadValues(node);
    allocateBuffers();
    factory.flushMount();
}

void OutputChannelImpl::saveSetup(std::shared_ptr<Node>& node) const {
    WriteBoolWithDefault(*node, "IsAutomaticName", isAutomaticName(), true);
    WriteBoolWithDefault(*node, "IsAutomaticUnit", isAutomaticUnit(), true);
    WriteBoolWithDefault(*node, "IsAutomaticColor", isAutomaticColor(), true);
    persist(node, true);
}

void OutputChannelImpl::loadValues(std::shared_ptr<Node>& node) {
    const bool automaticName = ReadBoolWithDefault(*node, "IsAutomaticName", true);
    const bool automaticUnit = ReadBoolWithDefault(*node, "IsAutomaticUnit", true);
    const bool automaticColor = ReadBoolWithDefault(*node, "IsAutomaticColor", true);
    persist(node, false);
    if (automaticName) {
        defaultName = getName();
    }
    if (automaticUnit) {
        defaultUnit = getUnit();
    }
    if (automaticColor) {
        defaultColor = getColor();
    }
}

/// The host keeps a channel's settings in the element of its own document that belongs to the node.
void OutputChannelImpl::persist(std::shared_ptr<Node>& node, bool saving) const {
    auto own = std::dynamic_pointer_cast<KestrovaKCOMNode>(node);
    if (!own) {
        own = std::make_shared<KestrovaKCOMNodeCreator>(node, app);
        node = own;
    }
    callHost(hostChannel, &HostChannel::persistSetup, own->GetDocument().get(),
             own->GetElement().get(), toHostBool(saving));
}

void OutputChannelImpl::alignWritePosition(std::int64_t absolute) {
    if (getRateKind(hostChannel) != SampleRateKind::Synchronous || !isUsed()) {
        return;
    }
    const std::int64_t position = get(&HostChannel::getWritePosition);
    const std::int64_t divider = getRateDivider();
    const std::int64_t wrap = get(&HostChannel::getBufferSize) * divider;
    if (wrap == 0) {
        throw std::domain_error(
            "OutputChannel: the host gives a synchronous channel no buffer or no rate.");
    }
    std::int64_t offset = absolute % wrap - position * divider;
    if (offset < 0) {
        offset += wrap;
    }
    set(&HostChannel::setWriteOffset, offset);
}

}  // namespace Kestrova::Utils::Kcom::OutputChannel
