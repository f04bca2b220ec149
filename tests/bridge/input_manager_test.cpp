#include "bridge/input/input_manager_impl.h"

#include <gmock/gmock.h>

#include <cstring>
#include <stdexcept>

#include "bridge/output/channel_id_text.h"
#include "tests/bridge/bridge_bench.h"

namespace {

using namespace Kestrova::Utils::Kcom::InputChannel;
using Kestrova::Utils::Kcom::ChannelIdText;
using ::testing::ElementsAre;

class InputManagerTest : public BridgeTest {
  protected:
    InputManagerTest() { inputs.attachHost(app, nullptr); }

    /// A used channel that another source has in the host, with these elements in its buffer.
    template <typename T>
    ScriptedChannel& addSource(std::vector<std::int32_t> indices, std::int32_t dataType,
                               const std::vector<T>& elements) {
        ScriptedChannel& source = host.makeChannel(std::move(indices));
        source.used = hostTrue;
        source.dataType = dataType;
        source.elementSize = sizeof(T);
        source.bufferSize = static_cast<std::int32_t>(elements.size());
        void* data = nullptr;
        source.getDataBuffer(&data);
        std::memcpy(data, elements.data(), elements.size() * sizeof(T));
        host.data.otherChannels.push_back(&source);
        return source;
    }
    std::shared_ptr<InputChannel> reading(const ScriptedChannel& source) {
        const auto channel = inputs.getChannel(ChannelIdText::format(source.indices));
        inputs.update();
        return channel;
    }

    InputManagerImpl inputs;
};

TEST_F(InputManagerTest, SamplesAreReadByTheirTypeAroundTheRing) {
    const auto bytes = reading(addSource({0}, 0, std::vector<std::uint8_t>{1, 200, 3}));
    std::vector<std::int8_t> clamped;
    bytes->readRange({4, 3}, clamped);
    EXPECT_THAT(clamped, ElementsAre(127, 3, 1)) << "of 1, 200 and 3";
    EXPECT_THAT(bytes->readBytes(2, 4), ElementsAre(3, 1));
    for (const SampleRange bad : {SampleRange{0, 4}, {-1, 1}, {0, -1}, {INT64_MAX, 2}}) {
        EXPECT_THROW(bytes->readRange(bad, clamped), std::out_of_range);
    }
    EXPECT_THROW(bytes->readBytes(2, 1), std::out_of_range);

    std::int32_t index = 0;
    const auto integer = [&](std::int32_t dataType, auto element) {
        return reading(addSource({++index}, dataType, std::vector{element}))->readInteger(0);
    };
    EXPECT_EQ(integer(1, std::int8_t{-5}), -5);
    EXPECT_EQ(integer(2, std::int16_t{-300}), -300);
    EXPECT_EQ(integer(3, std::uint16_t{65535}), 65535);
    EXPECT_EQ(integer(4, std::int32_t{-70000}), -70000);
    EXPECT_EQ(integer(5, -2.75F), -2);
    EXPECT_EQ(integer(6, INT64_MAX), INT64_MAX);
    EXPECT_EQ(integer(7, -8.5), -8);
    EXPECT_EQ(integer(8, std::uint32_t{4000000000}), 4000000000);
    EXPECT_EQ(integer(7, std::int32_t{1}), 0) << "the host's element is too small";
    EXPECT_EQ(integer(14, 1.0), 0) << "a record";
}

}  // namespace
