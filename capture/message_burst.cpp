#include "capture/message_burst.h"

#include <utility>

#include "capture/cmp_device.h"

void MessageBurst::add(const DeviceDirectory::Route& route, const DeviceTime& time,
                       const std::uint8_t* payload, std::uint32_t length) {
    device = route.device;
    latestTime = time;
    if (route.channel != nullptr && route.channel->onData(time, length, payload) &&
        route.channel->enterBurst()) {
        channels.push_back(route.channel);
    }
}

void MessageBurst::storeTime(std::int64_t timeStamp) {
    if (device != nullptr) {
        std::exchange(device, nullptr)->setLatestTime(latestTime, timeStamp);
    }
}

void MessageBurst::endFrame(std::int64_t timeStamp, std::int64_t readAt) {
    constexpr std::int64_t longest = 2'000'000;  // nanoseconds
    storeTime(timeStamp);
    if (readAt - handedOverAt >= longest) {
        handOver(timeStamp, readAt);
    }
}

void MessageBurst::handOver(std::int64_t timeStamp, std::int64_t readAt) {
    storeTime(timeStamp);
    handedOverAt = readAt;
    for (CmpChannel* const channel : channels) {
        channel->handOver();
    }
    channels.clear();
}
