// How the factory's channels are saved and restored.
#include <stdexcept>

#include "bridge/output/channel_id_text.h"
#include "bridge/output/output_factory_impl.h"
#include "setup/node_values.h"

namespace Kestrova::Utils::Kcom::OutputChannel {

using Serialization::ForceWrite;
using Serialization::ReadValueAs;

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
        for (auto entry = channels.begin(); entry != channels.end();) {
            if (entry->value.use_count() == 1) {
                unmount(*entry->value);
                entry = channels.erase(entry);
            } else {
                ++entry;
            }
        }
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
