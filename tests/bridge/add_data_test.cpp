#include "bridge/output/add_data.h"

#include <gmock/gmock.h>

#include <typeinfo>

#include "tests/bridge/bridge_bench.h"

namespace {

using namespace Kestrova::Utils::Kcom::OutputChannel;
using ::testing::ElementsAre;

constexpr std::uint8_t bytes[] = {1, 2, 3, 4, 5, 6, 7, 8};

class AddDataTest : public ::testing::Test {
  protected:
    AddDataTest() {
        channel.async = hostTrue;
        channel.bufferSize = 4;
    }
    void shape(std::int32_t elements, std::int32_t elementBytes) {
        channel.arraySize = elements;
        channel.elementSize = elementBytes;
    }

    ScriptedHost host;
    ScriptedChannel& channel = host.makeChannel();
    CountedRef<HostApp> app{&host.app};
    CountedRef<HostChannel> ref{&channel};
    AddDataDirect direct{ref};
    AddDataInSetup setup{ref};
};

TEST_F(AddDataTest, ModeAndUseDecideTheStrategy) {
    const auto selected = [&](HostBool setupMode, HostBool used) -> const std::type_info& {
        host.app.setupMode = setupMode;
        channel.used = used;
        const auto strategy = selectAddData(ref, app);
        const IAddData& made = *strategy;
        return typeid(made);
    };
    EXPECT_EQ(selected(hostTrue, hostFalse), typeid(AddDataInSetup));
    EXPECT_EQ(selected(hostFalse, hostTrue), typeid(AddDataDirect));
    EXPECT_EQ(selected(1, hostFalse), typeid(AddDataEmpty)) << "1 is not the host's true";
    EXPECT_EQ(selected(hostFalse, 1), typeid(AddDataEmpty)) << "1 is not the host's true";
}

TEST_F(AddDataTest, SamplesLandAtTheWritePositionAndAreCommitted) {
    shape(1, 2);
    channel.writePosition = 3;
    direct.addAsynchronousSample(bytes, 2, 1.5);
    EXPECT_THAT(channel.sampleAt(3), ElementsAre(1, 2));
    EXPECT_EQ(channel.timeAt(3), 1.5);
    EXPECT_EQ(channel.writePosition, 0) << "the host wraps";
    direct.addSynchronousSample(bytes + 2, 2);
    EXPECT_THAT(channel.sampleAt(0), ElementsAre(3, 4));
    EXPECT_EQ(channel.writePosition, 1);
}

TEST_F(AddDataTest, UnusedChannelShowsItsLiveValueInSetup) {
    channel.dataType = 0;
    channel.scale = 10.0;
    channel.offset = 0.5;
    const auto live = [&](auto add) {
        add();
        return setup.getLastValue();
    };
    EXPECT_EQ(live([&] { setup.setValueRaw(bytes, 1); }), 10.5);
    EXPECT_EQ(live([&] { setup.setValueRawClamped(bytes + 1, 1); }), 20.5);
    EXPECT_EQ(live([&] { setup.addSynchronousSample(bytes + 2, 1); }), 30.5);
    EXPECT_EQ(live([&] { setup.addAsynchronousSample(bytes + 3, 1, 0.0); }), 40.5);
    EXPECT_EQ(live([&] { setup.addAsynchronousBlockSample(bytes + 4, 1, 0.0); }), 50.5);
    EXPECT_EQ(live([&] { setup.addVariantSample(bytes + 5, 1, 0.0); }), 60.5);
    EXPECT_EQ(channel.writePosition, 0) << "an unused channel was written to";
    EXPECT_THAT(channel.sampleAt(0), ElementsAre(0));
    EXPECT_TRUE(channel.variantSamples.empty());
}

}  // namespace
