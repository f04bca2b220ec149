#include "capture/frame_batch.h"

#include "capture/cmp_device.h"

void FrameBatch::add(const DeviceDirectory::Route& route, const DeviceTime& time,
                     const std::uint8_t* payload, std::uint32_t length) {
    device = route.device;
    latestTime = time;
    if (route.channel == nullptr) {
        return;
    }
    DataMessage& message = messages[count++];
    message = {time, payload, length, nullptr};
    if (route.channel->collect(message)) {
        channels[channelCount++] = route.channel;
    }
}

void FrameBatch::handOver(std::int64_t timeStamp) {
    if (device == nullptr) {
        return;
    }
    device->setLatestTime(latestTime, timeStamp);
    for (std::size_t i = 0; i < channelCount; ++i) {
        channels[i]->queueCollected();
    }
    device = nullptr;
    count = 0;
    channelCount = 0;
}
