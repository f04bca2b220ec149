#pragma once

#include <numeric>

#include "tests/support/wire_frames.h"

/// One frame of each kind, for the devices of `CaptureRig::addOneOfEach`.
namespace wire {

struct SampleFrame {
    std::string name;
    Bytes bytes;
    /// Where each sample or status that the frame brings is complete.
    std::vector<std::size_t> effectEnds;
};

inline Bytes counting(std::size_t size) {
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
    return bytes;
}

inline SampleFrame tecmpDataSample(const std::string& name, std::uint16_t cmId,
                                   const std::vector<Message>& messages) {
    SampleFrame sample{name, tecmpData(cmId, messages), {}};
    std::size_t end = 26;
    for (const Message& message : messages) {
        end += 16 + message.payload.size();
        sample.effectEnds.push_back(end);
    }
    return sample;
}

/// A frame that takes effect as a whole or not at all.
inline SampleFrame wholeSample(const std::string& name, Bytes bytes, std::size_t effects) {
    const std::size_t end = bytes.size();
    return {name, std::move(bytes), std::vector(effects, end)};
}

inline std::vector<SampleFrame> sampleFrames() {
    const Bytes eight = counting(8);
    return {
        tecmpDataSample("tecmp_can", 0x41, {{0x10, 1000000001, can(0x123, eight)}}),
        tecmpDataSample("tecmp_can_fd", 7, {{1, 1000000002, can(0x98FF0010, counting(64))}}),
        tecmpDataSample("tecmp_lin", 0x32, {{0x10, 1000000003, lin(0xC5, eight, 0x77)}}),
        tecmpDataSample("tecmp_three_messages", 0x41,
                        {{0x10, 1, can(1, {})},
                         {0x20, 2, can(2, counting(3))},
                         {0x70, 0x8000000000000003, can(3, eight)}}),
        wholeSample("tecmp_cm_status", tecmp(0x41, 1, {{0, 5, cmStatus(0x41, 77, "S1")}}), 1),
        wholeSample("tecmp_bus_status",
                    tecmp(0x41, 2, {{0, 5, busStatus(0x41, {{0x10, 9, 1}, {0x30, 8, 0}})}}), 2),
        wholeSample("asam_can", asam(0x41, 1, 1, {0x20, 1, asamCan(0x80000123, eight)}), 1),
        wholeSample("asam_cm_status", asam(0x41, 3, 1, {0, 1, asamStatus("module", "S2")}), 1),
        wholeSample("tagged", tagged(tecmpData(0x41, {{0x10, 1, can(1, eight)}})), 0),
    };
}

}  // namespace wire
