#include "tests/support/capture_rig.h"
#include "tests/support/sample_frames.h"

// Broken frames on the whole way from the port to the outputs. The port gives each frame in a block
// of exactly its length, so the address sanitizer sees a read behind its end.

namespace {

using wire::Bytes;
using wire::SampleFrame;

struct HostileRig : CaptureRig {
    HostileRig() { addOneOfEach(); }

    /// Counts the samples that came out since the last call. Each must be a whole record.
    std::size_t takeSamples() {
        reader.flushAll();
        std::size_t count = 0;
        for (const auto& output : factory.channels) {
            for (const auto& sample : std::exchange(output->samples, {})) {
                EXPECT_TRUE(isWholeRecord(sample));
                ++count;
            }
        }
        return count;
    }

    /// Counts the modules and channels whose status came in.
    std::size_t countStatuses() const {
        std::size_t count = 0;
        for (const auto& device : devices.list()) {
            count += device->getSerialNumberText() != "0" ? 1 : 0;
            for (const auto& channel : *device->getChannels()) {
                count += channel->getBusStatus().messageCount != 0 ? 1 : 0;
            }
        }
        return count;
    }
};

TEST(HostileFramesTest, CutFrameBringsWhatLiesWhollyInside) {
    for (const SampleFrame& sample : wire::sampleFrames()) {
        HostileRig rig;
        for (std::size_t size = 0; size <= sample.bytes.size(); ++size) {
            Bytes cut = sample.bytes;
            cut.resize(size);
            rig.read({cut});
            const auto& ends = sample.effectEnds;
            const auto inside = std::count_if(ends.begin(), ends.end(),
                                              [size](std::size_t end) { return end <= size; });
            EXPECT_EQ(rig.takeSamples() + rig.countStatuses(), inside)
                << sample.name << " cut at " << size;
        }
    }
}

TEST(HostileFramesTest, BrokenByteBringsNoMoreThanTheFrameCanHold) {
    constexpr std::size_t smallestMessage = 16 + 3;
    for (const SampleFrame& sample : wire::sampleFrames()) {
        HostileRig rig;
        rig.read({sample.bytes});
        const bool isData = rig.takeSamples() != 0;
        std::size_t delivered = 0;
        for (std::size_t at = 0; at < sample.bytes.size(); ++at) {
            std::vector<Bytes> broken(10, sample.bytes);
            for (unsigned bit = 0; bit < 8; ++bit) {
                broken[bit][at] = static_cast<std::uint8_t>(broken[bit][at] ^ 1U << bit);
            }
            broken[8][at] = 0x00;
            broken[9][at] = 0xFF;
            rig.read(broken);
            const std::size_t samples = rig.takeSamples();
            EXPECT_LE(samples, broken.size() * (sample.bytes.size() / smallestMessage))
                << sample.name << " at " << at;
            delivered += samples;
        }
        for (const auto& device : rig.devices.list()) {
            EXPECT_LE(device->getSerialNumberText().size(), 50U) << sample.name;
        }
        EXPECT_EQ(delivered != 0, isData) << sample.name;
    }
}

}  // namespace
