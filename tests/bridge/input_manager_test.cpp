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
using ::testing::HasSubstr;
using ::testing::Pair;

class InputManagerTest : public BridgeTest {
  protected:
    InputManagerTest() { inputs.attachHost(app, nullptr); }

    /// A used channel that another source has in the host, with these elements in its buffer.
    template <typename T = std::uint8_t>
    ScriptedChannel& addSource(std::vector<std::int32_t> indices, std::int32_t dataType = 0,
                               const std::vector<T>& elements = {0}) {
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
    static std::string idsOf(const InputList& list) {
        std::string ids;
        for (const auto& channel : list) {
            ids += channel->getChannelIdText() + ' ';
        }
        return ids;
    }

    InputManagerImpl inputs;
};

TEST_F(InputManagerTest, EmptySideTouchesNothingButThePosition) {
    host.data.bufferSize = 2000000000;
    host.data.wrapCount = 2;
    host.data.position = 5;
    EXPECT_EQ(callsOf([&] { EXPECT_THAT(inputs.update(), Pair(0, 4000000005)); }),
              "App.isSetupMode, App.getData, Data.getBufferState, App.getData, Data.getWrapCount");
    EXPECT_THAT(inputs.update(), Pair(4000000005, 4000000005));
    const auto tellAll = [&] {
        EXPECT_FALSE(inputs.hasActiveChannels());
        inputs.resetForAcquisition();
        inputs.alignReadPosition();
        inputs.dropStaleAndNotify();
        inputs.sendSecondNotification();
        inputs.rebindChannels();
        inputs.claimChannels(nullptr);
        inputs.removeHostChannel(nullptr);
        inputs.detachChannels();
    };
    EXPECT_EQ(callsOf(tellAll), "");
    auto& document = host.makeDocument(L"Setup", true);
    inputs.loadSetup(nodeOver(document));
    inputs.saveSetup(nodeOver(document));
    EXPECT_EQ(document.root->asText(), "Setup\n  InputList Version=\"1\"\n");
    inputs.loadSetup(nodeOver(document));
    host.data.valueB = 2.5;
    EXPECT_EQ(inputs.getSampleRate() + inputs.getHostValueA() + inputs.getHostValueB(), 1002.5);
}

TEST_F(InputManagerTest, ChannelsAreSharedWhileTheyAreHeld) {
    addSource({1, 2});
    auto channel = inputs.getChannel("1:2");
    EXPECT_EQ(inputs.getChannel("1;2"), channel);
    for (const char* none : {"", "nonsense", "9:9"}) {
        EXPECT_FALSE(inputs.getChannel(none)->isSameChannel(*inputs.makeEmptyChannel())) << none;
    }
    InputManagerImpl others;
    others.attachHost(app, nullptr);
    const auto twin = others.getChannel("1:2");
    EXPECT_EQ(inputs.getChannel(*twin), channel);
    channel.reset();
    EXPECT_EQ(inputs.getChannel(*twin)->getChannelIdText(), "1:2");
    inputs.dropStaleInputs();
    EXPECT_THAT(callsOf([&] { inputs.getChannel("1:2"); }), HasSubstr("findChannel"))
        << "a channel that nobody holds was kept";
}

TEST_F(InputManagerTest, ListFollowsFilterSortAndChannels) {
    InputList::Channels held;
    for (const std::int32_t index : {3, 1, 2}) {
        held.push_back(reading(addSource({index})));
    }
    const auto list = inputs.createList(
        [](const InputChannel& channel) { return channel.getChannelIdText() != "1"; });
    EXPECT_EQ(idsOf(*list), "3 2 ");
    list->setSort([](const InputChannel& a, const InputChannel& b) {
        return a.getChannelIdText() < b.getChannelIdText();
    });
    list->setFilter(nullptr);
    EXPECT_EQ(idsOf(*list), "1 2 3 ");
    inputs.removeHostChannel(host.data.otherChannels.at(1));
    EXPECT_EQ(idsOf(*list), "2 3 ");
    EXPECT_FALSE(held.at(1)->isAttached());
    host.data.otherChannels.erase(host.data.otherChannels.begin());
    inputs.update();
    EXPECT_TRUE(held.at(0)->isAttached()) << "looked up outside the setup";
    host.app.setupMode = hostTrue;
    inputs.update();
    EXPECT_EQ(idsOf(*list), "2 ");
    const CountedRef<HostChannelList> claimed(&host.script.make<ScriptedChannelList>());
    EXPECT_EQ(callsOf([&] { inputs.claimChannels(claimed); }),
              "ChannelList.addChannel(HostChannel)");
    inputs.detachChannels();
    EXPECT_TRUE(list->empty());
}

TEST_F(InputManagerTest, SavedInputsAreReadInBothForms) {
    addSource({1, 2, 3});
    const auto found = inputs.getChannel("1:2;3");
    const auto absent = inputs.getChannel("6:7");
    auto& document = host.makeDocument(L"Setup", true);
    inputs.saveSetup(nodeOver(document));
    EXPECT_EQ(document.root->asText(),
              "Setup\n  InputList Version=\"1\"\n    Input Id=\"0\" Index=\"1:2;3\"\n"
              "    Input Id=\"1\" Index=\"6:7\"\n");
    const auto wanted = [&](const wchar_t* name, const wchar_t* id, const wchar_t* index) {
        InputManagerImpl loading;
        loading.attachHost(app, nullptr);
        auto& setup = host.makeDocument(L"Setup", false);
        auto& input = setup.root->addNew(L"InputList").addNew(name);
        input.values = {{L"Id", id}, {L"Index", index}};
        const std::string calls = callsOf([&] { loading.loadSetup(nodeOver(setup)); });
        const std::size_t start = calls.find("[");
        return start == std::string::npos ? "" : calls.substr(start, calls.find("]") + 1 - start);
    };
    EXPECT_EQ(wanted(L"Input", L"0", L"1;2;3"), "[1 2 3]");
    EXPECT_EQ(wanted(L"Input", L"7x", L"12"), "[12]");
    EXPECT_EQ(wanted(L"Output", L"0", L"1:2"), "");
    EXPECT_EQ(wanted(L"Input", L"x", L"1:2"), "");
    EXPECT_EQ(wanted(L"Input", L"0", L""), "");
    EXPECT_EQ(wanted(L"Input", L"0", L"1:2:3"), "");
}

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

TEST_F(InputManagerTest, OnlyTheScaledTypesAreScaledAndArraysGiveAllElements) {
    auto& scaled = addSource({1}, 16, std::vector<double>{1.0, 2.0, 3.0, 4.0});
    scaled.scale = 10.0;
    scaled.offset = 0.5;
    scaled.arraySize = scaled.bufferSize = 2;
    scaled.async = hostTrue;
    double* times = nullptr;
    scaled.getTimeBuffer(&times);
    times[1] = 7.5;
    std::vector<TimedValue<float>> timed;
    reading(scaled)->readRange({1, 1}, timed);
    EXPECT_THAT(timed, ElementsAre(TimedValue<float>{7.5, 30.5F}, TimedValue<float>{7.5, 40.5F}));

    auto& plain = addSource({2}, 7, std::vector<double>{1.0, 2.0});
    plain.scale = 10.0;
    plain.rateDivider = 4;
    reading(plain)->readRange({500, 1}, timed);
    EXPECT_THAT(timed, ElementsAre(TimedValue<float>{2.0, 1.0F})) << "250 a second";
}

TEST_F(InputManagerTest, BuffersAreReadOnlyWhileTheyAreKnown) {
    auto& source = addSource({1});
    source.used = hostFalse;
    host.data.position = 10;
    const auto channel = reading(source);
    EXPECT_EQ(hostCodeOf([&] { channel->readDouble(0); }), HostCode::invalidPointer);
    EXPECT_FALSE(inputs.hasActiveChannels());
    source.used = hostTrue;
    EXPECT_TRUE(inputs.hasActiveChannels());
    host.data.position = 20;
    EXPECT_THAT(inputs.update(), Pair(10, 20)) << "the unused channel held it back";
    EXPECT_EQ(channel->readFloat(0), 0.0F) << "it is used now";
    host.data.position = 30;
    inputs.alignReadPosition();
    EXPECT_EQ(hostCodeOf([&] { channel->readFloat(0); }), HostCode::invalidPointer);
    EXPECT_THAT(inputs.update(), Pair(30, 30));
    inputs.resetReadMark();
    EXPECT_THAT(inputs.update(), Pair(0, 30));
}

TEST_F(InputManagerTest, ManyChannelsAreUpdatedTogetherAndAFailureComesOut) {
    std::vector<std::shared_ptr<InputChannel>> held;
    for (std::int32_t index = 0; index < 50; ++index) {
        held.push_back(inputs.getChannel(ChannelIdText::format(addSource({5, index}).indices)));
    }
    inputs.update();
    EXPECT_EQ(held.back()->readInteger(0), 0);
    host.script.failOperation("HostChannel::getScale", HostCode::failed);
    EXPECT_EQ(hostCodeOf([&] { inputs.update(); }), HostCode::failed);
    host.script.heal();
    EXPECT_EQ(hostCodeOf([&] { inputs.update(); }), HostCode::success);
}

}  // namespace
