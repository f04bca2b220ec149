#include "station/offline/direct_output.h"

namespace station {

std::shared_ptr<DirectOutputs::OutputChannel> DirectOutputs::createChannel(OutputChannelType,
                                                                           const Init& init) {
    const auto index = static_cast<std::uint32_t>(channels.size());
    channels.push_back(std::make_shared<DirectOutput>(index, sink));
    if (init) {
        init(channels.back());
    }
    return channels.back();
}

std::shared_ptr<DirectOutputs::OutputChannel> DirectOutputs::getOrCreateChannel(
    std::uint32_t index, OutputChannelType type, const Init& init) {
    return index < channels.size() && channels[index] ? channels[index] : createChannel(type, init);
}

void DirectOutputs::removeChannel(const std::shared_ptr<OutputChannel>& channel) {
    channels.at(channel->getIndex()).reset();
}

}  // namespace station
