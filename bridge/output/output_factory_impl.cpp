#include "bridge/output/output_factory_impl.h"

#include <algorithm>
#include <stdexcept>

#include "bridge/output/channel_id_text.h"
#include "bridge/output/color_palette.h"
#include "setup/node_values.h"

namespace Kestrova::Utils::Kcom::OutputChannel {

using Serialization::ForceWrite;
using Serialization::ReadValueAs;

namespace {

void applyType(const CountedRef<HostChannel>& channel, OutputChannelType type) {
    callHost(channel, &HostChannel::setDataType, type.dataType);
    if (type.rateKind != SampleRateKind::Synchronous &&
        type.rateKind != SampleRateKind::Asynchronous &&
        type.rateKind != SampleRateKind::SingleValue) {
        return;
    }
    callHost(channel, &HostChannel::setAsync,
             toHostBool(type.rateKind == SampleRateKind::Asynchronous));
    callHost(channel, &HostChannel::setSingleValue,
             toHostBool(type.rateKind == SampleRateKind::SingleValue));
}

void claim(const CountedRef<HostChannel>& channel) {
    callHost(queryHost<HostChannelExt>(channel), &HostChannelExt::claim);
}

bool isActive(const OutputChannelImpl& channel) {
    if (!channel.isUsed() || channel.isExcluded()) {
        return false;
    }
    const std::int32_t channelClass =
        hostValue(channel.getHostChannel(), &HostChannel::getChannelClass);
    return channelClass == 1 || channelClass == 11;
}

}  // namespace

std::shared_ptr<OutputChannel> OutputFactoryImpl::createChannel(OutputChannelType type,
                                                                const Init& init) {
    const auto channel = std::make_shared<OutputChannelImpl>(*this, app);
    const std::uint32_t key = channels.append(channel).key;
    channel->setIndex(key);
    channel->attachHostChannel(mount(key, type));
    channel->setColor(colorPalette[colorCounter % colorPalette.size()]);
    ++colorCounter;
    if (init) {
        init(channel);
    }
    if (loadState == LoadState::Idle) {
        if (!isChannelSetFixed()) {
            channel->allocateBuffers();
        }
    } else if (isChannelSetFixed()) {
        channel->setUsed(false);
    }
    flushMount();
    return channel;
}

std::shared_ptr<OutputChannel> OutputFactoryImpl::getOrCreateChannel(std::uint32_t index,
                                                                     OutputChannelType type,
                                                                     const Init& init) {
    const auto* const found = channels.find(index);
    if (found == nullptr) {
        return createChannel(type, init);
    }
    const std::shared_ptr<OutputChannelImpl> channel = *found;
    if (!isChannelSetFixed() && channel->getChannelType() != type) {
        applyType(channel->getHostChannel(), type);
    }
    return channel;
}

void OutputFactoryImpl::removeChannel(const std::shared_ptr<OutputChannel>& channel) {
    const std::uint32_t key = channel->getIndex();
    if (const auto* const found = channels.find(key)) {
        unmount(**found);
        channels.eraseKey(key);
    }
}

void OutputFactoryImpl::setChannelGroupName(const std::vector<std::int32_t>& indices,
                                            const std::string& name) {
    callHost(pluginGroup, &HostPluginGroup::setChannelGroupName,
             pluginId ? pluginId->c_str() : nullptr, static_cast<std::int32_t>(indices.size()),
             indices.data(), toHostText(name).c_str());
}

std::int32_t OutputFactoryImpl::endMultipleMount() {
    --multipleMountDepth;
    if (mountPending) {
        flushMount();
    }
    if (multipleMountDepth < 0) {
        throw std::runtime_error("endMultipleMount called too many times");
    }
    return multipleMountDepth;
}

void OutputFactoryImpl::attachHost(CountedRef<HostApp> hostApp,
                                   std::shared_ptr<const std::wstring> id, HostPluginGroup* group) {
    app = std::move(hostApp);
    pluginId = std::move(id);
    pluginGroup = group;
}

bool OutputFactoryImpl::hasActiveChannels() const {
    return std::any_of(channels.begin(), channels.end(),
                       [](const auto& entry) { return isActive(*entry.value); });
}

void OutputFactoryImpl::claimChannels() const {
    for (const auto& entry : channels) {
        if (!entry.value->isExcluded() && entry.value.use_count() >= 2) {
            claim(entry.value->getHostChannel());
        }
    }
}

void OutputFactoryImpl::claimChannels(bool active) const {
    if (active) {
        claimChannels();
    }
}

void OutputFactoryImpl::refreshAddData() {
    for (const auto& entry : channels) {
        entry.value->selectAddData();
    }
}

void OutputFactoryImpl::alignToAcquisition() {
    const std::int64_t absolute = getAcquisitionPosition(app);
    for (const auto& entry : channels) {
        entry.value->alignWritePosition(absolute);
    }
}

void OutputFactoryImpl::detachChannels() {
    for (const auto& entry : channels) {
        entry.value->attachHostChannel(nullptr);
    }
}

void OutputFactoryImpl::clear() {
    colorCounter = 0;
    channels.clear();
}

void OutputFactoryImpl::setRemountMode(std::int32_t mode) {
    for (const auto& entry : channels) {
        entry.value->setRemountMode(mode);
    }
}

void OutputFactoryImpl::flushMount() {
    if (multipleMountDepth != 0) {
        mountPending = true;
        return;
    }
    if (loadState == LoadState::Idle) {
        callHost(data(), &HostData::notifyChannelsChanged);
    }
    mountPending = false;
}

bool OutputFactoryImpl::isChannelSetFixed() const {
    return hostFlagOf(data(), &HostData::isChannelSetFixed);
}

CountedRef<HostChannel> OutputFactoryImpl::mount(std::uint32_t key, OutputChannelType type) {
    const auto index = static_cast<std::int32_t>(key);
    auto channel = hostObject(pluginGroup, &HostPluginGroup::mountChannels,
                              pluginId ? pluginId->c_str() : nullptr, 1, &index);
    applyType(channel, type);
    callHost(channel, &HostChannel::setUsed, hostTrue);
    if (isChannelSetFixed()) {
        claim(channel);
    }
    return channel;
}

void OutputFactoryImpl::unmount(OutputChannelImpl& channel) {
    if (const CountedRef<HostChannel> hostChannel = channel.getHostChannel()) {
        channel.attachHostChannel(nullptr);
        callHost(pluginGroup, &HostPluginGroup::unmountChannel, hostChannel.get());
        flushMount();
    }
}

void OutputFactoryImpl::requireState(LoadState state) const {
    if (loadState == state) {
        return;
    }
    static constexpr const char* message =
        "OutputFactory: beginLoadSetup and endLoadSetup not called correctly at start and end of "
        "onLoadSetup event.";
    callHost(app, &HostApp::writeError, toHostText(message).c_str());
    throw std::runtime_error(message);
}

void OutputFactoryImpl::beginLoadSetup() {
    requireState(LoadState::Idle);
    loadState = LoadState::Loading;
}

void OutputFactoryImpl::loadSetup(const std::shared_ptr<Node>& node) {
    requireState(LoadState::Loading);
    const std::shared_ptr<Node> list = node->FindChild("OutputList");
    if (!list) {
        return;
    }
    colorCounter = ReadValueAs<std::uint64_t>(*list, "ColorCounter");
    const auto count = static_cast<std::uint64_t>(list->GetChildCount());
    for (std::uint64_t position = 0; position < count; ++position) {
        loadChannel(list->GetChild(position));
    }
}

void OutputFactoryImpl::endLoadSetup() {
    requireState(LoadState::Loading);
    if (!isChannelSetFixed()) {
        const auto isStale = [](const auto& entry) { return entry.value.use_count() == 1; };
        for (const auto& entry : channels) {
            if (isStale(entry)) {
                unmount(*entry.value);
            }
        }
        channels.eraseIf(isStale);  // together: a setup may have any number of them
    }
    loadState = LoadState::Idle;
}

void OutputFactoryImpl::saveSetup(const std::shared_ptr<Node>& node) const {
    const std::shared_ptr<Node> list = node->AddChild("OutputList");
    ForceWrite(*list, "Version", std::string("1"));
    ForceWrite(*list, "ColorCounter", colorCounter);
    for (const auto& entry : channels) {
        std::shared_ptr<Node> child = list->AddChild("Output");
        ForceWrite(*child, "Id", StringHelper::ToText(entry.key));
        entry.value->saveSetup(child);
    }
}

void OutputFactoryImpl::loadChannel(std::shared_ptr<Node> node) {
    if (!node || node->GetName() != "Output") {
        return;
    }
    const auto key = parseSetupId(ReadValueAs<std::string>(*node, "Id"));
    if (!key || channels.contains(*key)) {
        return;
    }
    const auto channel = std::make_shared<OutputChannelImpl>(*this, app);
    channels.append(*key, channel);
    CountedRef<HostChannel> hostChannel = findFixedChannel(*node);
    if (!hostChannel) {
        // Its owner will ask for the type that it has.
        static constexpr std::int32_t doubles = 7;
        hostChannel = mount(*key, {doubles, SampleRateKind::Asynchronous});
    }
    channel->setIndex(*key);
    channel->attachHostChannel(std::move(hostChannel));
    channel->loadValues(node);
}

/// The host's channel with the indices that the host kept in the setup, if the channel set is
/// fixed. Hosts keep them as a child's text or as a value.
CountedRef<HostChannel> OutputFactoryImpl::findFixedChannel(const Node& node) const {
    if (!isChannelSetFixed()) {
        return {};
    }
    const std::shared_ptr<Node> own = node.FindChild("OutputChannel");
    if (!own) {
        return {};
    }
    const std::shared_ptr<Node> place = own->FindChild("Index");
    const std::vector<std::int32_t> indices =
        ChannelIdText::parse(place ? place->GetText() : ReadValueAs<std::string>(*own, "Index"));
    if (indices.empty()) {
        return {};
    }
    return hostObject(data(), &HostData::findChannel, indices.data(),
                      static_cast<std::int32_t>(indices.size()));
}

}  // namespace Kestrova::Utils::Kcom::OutputChannel
