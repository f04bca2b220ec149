#include "bridge/input/input_manager_impl.h"

#include <oneapi/tbb/parallel_for_each.h>

#include <algorithm>

#include "bridge/output/channel_id_text.h"
#include "setup/node_values.h"

namespace Kestrova::Utils::Kcom::InputChannel {

using Serialization::ForceWrite;
using Serialization::Node;
using Serialization::ReadValueAs;

InputManagerImpl::~InputManagerImpl() {
    for (const auto& list : lists) {
        list->detachSource();
    }
}

std::size_t InputManagerImpl::HashOfIndices::operator()(const Indices& indices) const {
    constexpr std::size_t prime = 31;
    std::size_t hash = indices.size();
    for (const std::int32_t index : indices) {
        hash = hash * prime + std::hash<std::int32_t>()(index);
    }
    return hash;
}

std::shared_ptr<InputChannel> InputManagerImpl::getChannel(const std::string& id) {
    const Indices indices = ChannelIdText::parse(id);
    if (indices.empty()) {
        return makeEmptyChannel();
    }
    return getOrMake(indices);
}

std::shared_ptr<InputChannel> InputManagerImpl::getChannel(const InputChannel& channel) {
    std::shared_ptr<InputChannel> found;
    eraseIf([&](const auto& entry) {
        if (!found && entry->isSameChannel(channel)) {
            found = entry;
        }
        return entry.use_count() == 1;
    });
    if (found) {
        return found;
    }
    return channel.isAttached() ? getChannel(channel.getChannelIdText()) : makeEmptyChannel();
}

std::shared_ptr<InputChannel> InputManagerImpl::makeEmptyChannel() {
    return std::make_shared<InputChannelImpl>(app, nullptr);
}

double InputManagerImpl::getSampleRate() const {
    return hostValue(getHostData(app), &HostData::getSampleRate);
}

double InputManagerImpl::getHostValueA() const {
    return hostValue(getHostData(app), &HostData::getValueA);
}

double InputManagerImpl::getHostValueB() const {
    return hostValue(getHostData(app), &HostData::getValueB);
}

std::shared_ptr<InputList> InputManagerImpl::createList(InputList::Filter filter) {
    const auto allChannels = [this] {
        InputList::Channels all;
        for (const auto& entry : channels) {
            all.push_back(entry.value);
        }
        return all;
    };
    auto list = std::make_shared<InputListImpl>(allChannels, std::move(filter));
    lists.push_back(list);
    if (app) {
        list->refresh();
    }
    return list;
}

void InputManagerImpl::attachHost(CountedRef<HostApp> hostApp,
                                  std::shared_ptr<const std::wstring> id) {
    app = std::move(hostApp);
    pluginId = std::move(id);
}

void InputManagerImpl::saveSetup(const std::shared_ptr<Node>& node) const {
    const std::shared_ptr<Node> list = node->AddChild("InputList");
    ForceWrite(*list, "Version", std::string("1"));
    std::uint64_t position = 0;
    for (const auto& entry : channels) {
        const std::shared_ptr<Node> child = list->AddChild("Input");
        ForceWrite(*child, "Id", position++);
        ForceWrite(*child, "Index",
                   entry.value->isAttached() ? entry.value->getChannelIdText()
                                             : ChannelIdText::format(entry.key));
    }
}

void InputManagerImpl::loadSetup(const std::shared_ptr<Node>& node) {
    const std::shared_ptr<Node> list = node->FindChild("InputList");
    const auto count = list ? static_cast<std::uint64_t>(list->GetChildCount()) : 0;
    for (std::uint64_t position = 0; position < count; ++position) {
        const std::shared_ptr<Node> child = list->GetChild(position);
        if (!child || child->GetName() != "Input" ||
            !parseSetupId(ReadValueAs<std::string>(*child, "Id"))) {
            continue;
        }
        // The indices may stand there as a plain list, without their colon.
        auto text = ReadValueAs<std::string>(*child, "Index");
        if (const auto separator = text.find_first_not_of("0123456789");
            separator != std::string::npos) {
            text[separator] = ':';
        }
        if (const Indices indices = ChannelIdText::parse(text); !indices.empty()) {
            getOrMake(indices);
        }
    }
}

bool InputManagerImpl::hasActiveChannels() const {
    return std::any_of(channels.begin(), channels.end(), [](const auto& entry) {
        return entry.value->isAttached() && entry.value->isUsed();
    });
}

std::pair<std::int64_t, std::int64_t> InputManagerImpl::update() {
    if (hostFlagOf(app, &HostApp::isSetupMode)) {
        rebindChannels();
    }
    refreshLists();
    const std::int64_t absolute = getAcquisitionPosition(app);
    if (!channels.empty()) {
        oneapi::tbb::parallel_for_each(channels.begin(), channels.end(),
                                       [](const auto& entry) { entry.value->update(); });
    }
    return {std::exchange(lastPosition, absolute), absolute};
}

void InputManagerImpl::claimChannels(const CountedRef<HostChannelList>& list) const {
    for (const auto& entry : channels) {
        if (entry.value->isAttached()) {
            callHost(list, &HostChannelList::addChannel, entry.value->getHostChannel().get());
        }
    }
}

void InputManagerImpl::resetForAcquisition() {
    dropStaleInputs();
    resetReadMark();
}

void InputManagerImpl::resetReadMark() {
    setReadMark(0);
}

void InputManagerImpl::alignReadPosition() {
    if (!channels.empty()) {
        setReadMark(getAcquisitionPosition(app));
    }
}

void InputManagerImpl::dropStaleInputs() {
    eraseIf([](const auto& entry) { return entry.use_count() == 1; });
}

void InputManagerImpl::dropStaleAndNotify() {
    std::erase_if(lists, [](const auto& list) { return list.use_count() == 1; });
    dropStaleInputs();
    for (const auto& list : lists) {
        list->onFirstNotification();
    }
}

void InputManagerImpl::sendSecondNotification() {
    for (const auto& list : lists) {
        list->onSecondNotification();
    }
}

void InputManagerImpl::rebindChannels() {
    for (const auto& entry : channels) {
        if (auto found = findHostChannel(entry.key); found != entry.value->getHostChannel()) {
            entry.value->attachHostChannel(std::move(found));
        }
    }
    eraseIf([](const auto& entry) { return !entry->isAttached(); });
}

void InputManagerImpl::removeHostChannel(const HostChannel* channel) {
    if (channel == nullptr) {
        return;
    }
    eraseIf([&](const auto& entry) {
        const bool isGone = entry->isHostChannel(channel);
        if (isGone) {
            entry->attachHostChannel(nullptr);
        }
        return isGone;
    });
    refreshLists();
}

void InputManagerImpl::clear() {
    channels.clear();
    for (const auto& list : lists) {
        list->clear();
    }
}

void InputManagerImpl::detachChannels() {
    for (const auto& entry : channels) {
        entry.value->attachHostChannel(nullptr);
    }
    clear();
}

std::shared_ptr<InputChannelImpl> InputManagerImpl::getOrMake(const Indices& indices) {
    if (const auto* const found = channels.find(indices)) {
        return *found;
    }
    auto channel = std::make_shared<InputChannelImpl>(app, findHostChannel(indices));
    return channels.append(indices, std::move(channel)).value;
}

CountedRef<HostChannel> InputManagerImpl::findHostChannel(const Indices& indices) const {
    return hostObject(getHostData(app), &HostData::findChannel, indices.data(),
                      static_cast<std::int32_t>(indices.size()));
}

void InputManagerImpl::setReadMark(std::int64_t position) {
    lastPosition = position;
    for (const auto& entry : channels) {
        entry.value->dropBuffers();
    }
}

void InputManagerImpl::refreshLists() {
    dropStaleInputs();
    for (const auto& list : lists) {
        list->refresh();
    }
}

template <typename Test>
void InputManagerImpl::eraseIf(const Test& isGone) {
    for (auto entry = channels.begin(); entry != channels.end();) {
        entry = isGone(entry->value) ? channels.erase(entry) : entry + 1;
    }
}

}  // namespace Kestrova::Utils::Kcom::InputChannel
