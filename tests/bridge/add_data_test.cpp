#include "bridge/output/add_data.h"

#include "bridge/output/sample_bytes.h"

#include "tests/bridge/bridge_rig.h"

namespace {

using Kestrova::Utils::Kcom::OutputChannel::OutputChannelImpl;

constexpr std::uint8_t counted[] = {1, 2, 3, 4, 5, 6, 7, 8};
constexpr void (*operations[])(OutputChannelImpl&, const std::uint8_t*, std::uint64_t) = {
    [](auto& to, auto* data, auto size) { to.setValueRaw(data, size); },
    [](auto& to, auto* data, auto size) { to.setValueRawClamped(data, size); },
    [](auto& to, auto* data, auto size) { to.addSynchronousSample(data, size); },
    [](auto& to, auto* data, auto size) { to.addAsynchronousSample(data, size, 1); },
    [](auto& to, auto* data, auto size) { to.addAsynchronousBlockSample(data, size, 2); },
    [](auto& to, auto* data, auto size) { to.addVariantSample(data, size, 3); }};

class AddDataTest : public BridgeTest {
  protected:
    void attach(HostBool setupMode, HostBool used) {
        behind = &host.makeChannel();
        behind->async = hostTrue;
        behind->bufferSize = 2;
        behind->scale = 10.0;
        behind->used = used;
        host.app.setupMode = setupMode;
        output.attachHostChannel(CountedRef<HostChannel>(behind));
    }
    /// The ring, the write position, the second sample's time, and samples of varying size.
    std::string received() {
        std::ostringstream text;
        const auto add = [&](const std::vector<std::uint8_t>& sample) {
            std::copy(sample.begin(), sample.end(), std::ostream_iterator<int>(text));
        };
        add(behind->sampleAt(0));
        add(behind->sampleAt(1));
        text << ' ' << behind->writePosition << " @" << behind->timeAt(1);
        for (const auto& [time, sample] : behind->variantSamples) {
            text << " @" << time << ' ';
            add(sample);
        }
        return text.str();
    }

    ScriptedChannel* behind = nullptr;
    OutputChannelImpl output{factory, app};
};

TEST_F(AddDataTest, EachOperationWritesWhatItsSampleTakes) {
    const char* const expected[] = {"123456780000 1 @0", "123456000000 1 @0",
                                    "001234567800 0 @0", "001234567800 0 @1",
                                    "000000123456 0 @2", "000000000000 1 @0 @3 12345678"};
    for (std::size_t number = 0; number < std::size(operations); ++number) {
        attach(hostFalse, hostTrue);
        behind->arraySize = 3;
        behind->elementSize = 2;
        behind->writePosition = 1;
        operations[number](output, counted, 8);
        EXPECT_EQ(received(), expected[number]);
    }
    behind->async = hostFalse;
    EXPECT_EQ(hostCodeOf([&] { output.addAsynchronousSample(counted, 1, 0.0); }),
              HostCode::invalidPointer);
    output.attachHostChannel(nullptr);
    EXPECT_EQ(hostCodeOf([&] { output.setValueRaw(counted, 1); }), HostCode::invalidPointer);
}

TEST_F(AddDataTest, SetupShowsEachSampleAndWritesThoseOfUsedChannels) {
    for (std::size_t number = 0; number < std::size(operations); ++number) {
        const auto after = [&](HostBool setupMode, HostBool used) {
            attach(setupMode, used);
            operations[number](output, counted + number, 2);
            return received();
        };
        const auto written = after(hostFalse, hostTrue);
        EXPECT_EQ(after(1, 1), "00 0 @0") << "1 is not the host's true";
        EXPECT_EQ(output.getLastValue(), 0.0);
        EXPECT_NE(written, "00 0 @0") << number;
        EXPECT_EQ(after(hostTrue, hostTrue), written) << number;
        EXPECT_EQ(after(hostTrue, hostFalse), "00 0 @0") << number;
        EXPECT_EQ(output.getLastValue(), counted[number] * 10.0) << number;
    }
}

TEST(SampleBytesTest, BytesLastAsLongAsSomebodyCountsThem) {
    using Kestrova::Utils::Kcom::OutputChannel::SampleBytes;
    auto first = SampleBytes::make(counted, 8);
    CountedRef<HostByteArray> bytes;
    EXPECT_EQ(first.queryTo(bytes), 0);
    EXPECT_EQ(first->addRef(), 3U);
    EXPECT_EQ(first->release(), 2U);
    first.reset();
    const std::uint8_t* data = nullptr;
    std::uint64_t size = 0;
    EXPECT_EQ(bytes->getBytes(&data, &size), 0);
    EXPECT_TRUE(std::equal(data, data + size, std::begin(counted), std::end(counted)));
}

TEST(HostReadsTest, LackOfMemoryIsReported) {
    EXPECT_EQ(hostCodeOf([] {
                  Kestrova::Utils::Kcom::orOutOfMemory([]() -> int { throw std::bad_alloc(); });
              }),
              HostCode::outOfMemory);
}

}  // namespace
