#include <cstring>

#include "capture/frame_decoder.h"
#include "fuzz/require.h"
#include "tests/support/capture_rig.h"

// The way of a frame from the network to the outputs, with a device of each type set up. An input
// is a row of frames, each behind its length in two bytes; the last may be cut off.

namespace {

std::vector<wire::Bytes> split(const std::uint8_t* data, std::size_t size) {
    std::vector<wire::Bytes> frames;
    while (size >= 2) {
        const std::size_t length = std::min(std::size_t{data[0]} << 8 | data[1], size - 2);
        frames.emplace_back(data + 2, data + 2 + length);
        data += 2 + length;
        size -= 2 + length;
    }
    return frames;
}

/// The decoder alone, which also knows the frames that the capture loop doesn't let through.
void decode(const wire::Bytes& frame) {
    CmpHeader header;
    const std::uint8_t* payload = nullptr;
    std::int32_t offset = 0;
    std::int32_t before = 0;
    const auto length = static_cast<std::int32_t>(frame.size());
    while (parseFrame(frame.data(), length, &offset, header, payload) == DecodeResult::ok) {
        require(offset > before, "the running offset doesn't grow");
        require(payload >= frame.data() && header.dataLength <= frame.data() + length - payload,
                "a payload lies outside the frame");
        before = offset;
    }
}

class DataPath : CaptureRig {
  public:
    DataPath() { addOneOfEach(); }

    void run(const std::vector<wire::Bytes>& frames) {
        reader.prepareRead(true);
        devices.resetLastTimes();
        read(frames);
        reader.flushAll();
        for (const auto& output : factory.channels) {
            double time = 0.0;
            for (const auto& sample : std::exchange(output->samples, {})) {
                require(isWholeRecord(sample), "a sample is no whole record");
                require(sample.time >= time, "host time goes back");
                time = sample.time;
            }
        }
        for (const auto& device : devices.list()) {
            require(device->getSerialNumberText().size() <= 50, "the serial text is too long");
            for (const auto& channel : *device->getChannels()) {
                channel->getLastValueText();
            }
        }
        port.calls.clear();
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static DataPath dataPath;
    const std::vector<wire::Bytes> frames = split(data, size);
    for (const wire::Bytes& frame : frames) {
        decode(frame);
    }
    dataPath.run(frames);
    return 0;
}
