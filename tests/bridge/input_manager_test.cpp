#include "bridge/input/input_manager_impl.h"

#include <regex>

#include "bridge/output/channel_id_text.h"
#include "tests/bridge/bridge_rig.h"

namespace {

using namespace Kestrova::Utils::Kcom::InputChannel;
using Kestrova::Utils::Kcom::ChannelIdText;
using ::testing::ElementsAre;
using Positions = std::pair<std::int64_t, std::int64_t>;

class InputManagerTest : public BridgeTest {
  protected:
    InputManagerTest() { inputs.attachHost(app, nullptr); }

    /// A used channel that another source has in the host, with these elements in its buffer.
    template <typename T = std::uint8_t>
    ScriptedChannel& addSource(std::vector<std::int32_t> indices, std::int32_t dataType = 0,
                               const std::vector<T>& elements = {7}) {
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
    template <typename T>
    static std::vector<T> read(const InputChannel& channel, SampleRange range) {
        std::vector<T> values(9);
        channel.readRange(range, values);
        return values;
    }
    Positions updatedAt(std::int32_t position) {
        host.data.position = position;
        return inputs.update();
    }
    /// The channels that the manager keeps, as it saves them: "Setup ... 0=4:1 1=6".
    std::string saved() {
        auto& document = host.makeDocument(L"Setup", true);
        inputs.saveSetup(nodeOver(document));
        const std::regex entry("\\s+Input Id=\"(.)\" Index=\"(.*)\"");
        return std::regex_replace(document.root->asText(), entry, " $1=$2");
    }
    const std::string none = "Setup\n  InputList Version=\"1\"";

    InputManagerImpl inputs;
};

TEST_F(InputManagerTest, SamplesAreReadByTheirTypeAroundTheRing) {
    const auto bytes = reading(addSource({0}, 0, std::vector<std::uint8_t>{1, 200, 3}));
    EXPECT_THAT(read<std::int8_t>(*bytes, {4, 3}), ElementsAre(127, 3, 1)) << "of 1, 200 and 3";
    EXPECT_THAT(bytes->readBytes(2, 4), ElementsAre(3, 1));
    EXPECT_THAT(bytes->readBytes(0, 1), ElementsAre(1));
    EXPECT_THAT(read<std::int8_t>(*bytes, {3, 0}), ElementsAre());
    EXPECT_THAT(bytes->readBytes({INT64_MAX - 2, 2}), testing::SizeIs(2)) << "up to the last";
    for (const SampleRange bad : {SampleRange{0, 4}, {-1, 1}, {0, -1}, {INT64_MAX, 2}}) {
        EXPECT_THROW(read<std::int8_t>(*bytes, bad), std::out_of_range);
    }
    EXPECT_THROW(bytes->readBytes(2, 1), std::out_of_range);

    std::int32_t index = 0;
    const auto integer = [&](std::int32_t dataType, auto element) {
        return reading(addSource({++index}, dataType, std::vector{element}))->readInteger(0);
    };
    EXPECT_THAT((std::vector{integer(1, std::int8_t{-5}), integer(2, std::int16_t{-300}),
                             integer(3, std::uint16_t{65535}), integer(4, std::int32_t{-70000}),
                             integer(5, -2.75F), integer(6, INT64_MAX), integer(7, -8.5),
                             integer(8, std::uint32_t{4000000000}), integer(7, -1e30),
                             integer(7, 1e30), integer(7, double{NAN}), integer(7, 1)}),
                ElementsAre(-5, -300, 65535, -70000, -2, INT64_MAX, -8, 4000000000, INT64_MIN,
                            INT64_MAX, 0, 0 /* too small an element */));
    const auto whole = reading(addSource({++index}, 7, std::vector{254.5, 256.0, -1.0}));
    EXPECT_THAT(read<std::uint8_t>(*whole, {0, 3}), ElementsAre(254, 255, 0));
    for (const std::int32_t dataType : {14, 15, 16, 17, 18, 19}) {
        ScriptedChannel& source = addSource({dataType, 1}, dataType, std::vector{3.0});
        source.scale = 2.0;
        source.offset = 0.5;
        const bool isScaled = dataType >= 15 && dataType <= 18;
        EXPECT_EQ(reading(source)->readDouble(0), isScaled ? 6.5 : 0.0) << dataType;
    }
}

TEST_F(InputManagerTest, ElementsOfArraysAreReadWithTheirTimes) {
    ScriptedChannel& source = addSource({0}, 3, std::vector<std::uint16_t>{1, 2, 300, 4, 5, 6});
    source.arraySize = 2;
    source.bufferSize = 3;
    source.rateDivider = 4;  // of 1000 samples a second
    const auto channel = reading(source);
    EXPECT_THAT(read<std::uint8_t>(*channel, {1, 2}), ElementsAre(255, 4, 5, 6));
    EXPECT_THAT(read<std::vector<std::uint8_t>>(*channel, {2, 2}),
                ElementsAre(ElementsAre(5, 0, 6, 0), ElementsAre(1, 0, 2, 0)));
    using Timed = TimedValue<double>;
    EXPECT_THAT(read<Timed>(*channel, {2, 2}),
                ElementsAre(Timed{0.008, 5}, Timed{0.008, 6}, Timed{0.012, 1}, Timed{0.012, 2}));
    EXPECT_EQ(channel->acquisitionToSamples(11), 2);
    source.async = hostTrue;
    inputs.update();
    EXPECT_THAT(read<Timed>(*channel, {3, 1}), ElementsAre(Timed{0.0, 1}, Timed{0.0, 2}));
    source.rateDivider = 0;
    EXPECT_EQ(hostCodeOf([&] { channel->acquisitionToSamples(11); }), HostCode::invalidArgument);
    source.arraySize = 0;
    EXPECT_THAT(read<std::uint8_t>(*channel, {0, 1}), ElementsAre());
    EXPECT_EQ(channel->readInteger(0), 0) << "there is nothing to read";
}

TEST_F(InputManagerTest, ChannelsAreSharedWhileSomebodyHoldsThem) {
    ScriptedChannel& source = addSource({4, 1});
    const auto channel = inputs.getChannel("4;1");
    EXPECT_EQ(inputs.getChannel("4:1"), channel);
    EXPECT_EQ(channel->getProperties().getNode("x"), nullptr);
    for (const char* const unknown : {"", "x", "5:5"}) {
        const auto empty = inputs.getChannel(unknown);
        EXPECT_FALSE(empty->isAttached() || empty->isSameChannel(*inputs.makeEmptyChannel()));
        EXPECT_TRUE(empty->isSameChannel(*empty));
        EXPECT_EQ(hostCodeOf([&] { empty->readBytes({0, 0}); }), HostCode::invalidPointer);
    }
    EXPECT_EQ(saved(), none + " 0=4:1 1=5:5\n");
    InputManagerImpl others;
    others.attachHost(app, nullptr);
    const auto same = others.getChannel("4:1");
    source.indices = {4, 9};  // moved by the user
    EXPECT_EQ(inputs.getChannel(*same), channel);
    EXPECT_EQ(saved(), none + " 0=4:9\n") << "nobody holds the other";
    addSource({6});
    EXPECT_TRUE(inputs.getChannel(*others.getChannel("6"))->isAttached());
}

TEST_F(InputManagerTest, ListIsFilteredSortedAndKeptUpToDate) {
    std::vector<std::shared_ptr<InputChannel>> held;
    for (const wchar_t* const name : {L"b", L"c", L"a"}) {
        ScriptedChannel& source = addSource({static_cast<std::int32_t>(held.size())});
        source.name = name;
        held.push_back(inputs.getChannel(ChannelIdText::format(source.indices)));
    }
    inputs.createList(nullptr);  // which nobody holds
    const auto list = inputs.createList([](const auto& each) { return each.getName() != "c"; });
    const auto names = [&] {
        std::string text;
        for (const auto& each : *list) {
            text += each->getName();
        }
        EXPECT_EQ(std::pair(list->size(), list->empty()), std::pair(text.size(), text.empty()));
        return text;
    };
    EXPECT_EQ(names(), "ba");
    list->setSort([](const auto& a, const auto& b) { return a.getName() < b.getName(); });
    EXPECT_EQ(names(), "ab");
    list->setFilter(nullptr);
    EXPECT_EQ(names(), "abc");
    host.data.otherChannels[0]->name = L"d";
    inputs.sendSecondNotification();
    EXPECT_EQ(names(), "acd");
    list->clear();
    inputs.dropStaleAndNotify();
    EXPECT_EQ(names(), "acd");
    EXPECT_EQ(held[0].use_count(), 3) << "a list that nobody holds keeps it";
    inputs.removeHostChannel(host.data.otherChannels[1]);
    EXPECT_EQ(names(), "ad");
    inputs.detachChannels();
    EXPECT_EQ(names() + saved(), none + "\n");
    EXPECT_FALSE(held[0]->isAttached() || held[1]->isAttached());
    auto other = std::make_unique<InputManagerImpl>();
    other->attachHost(app, nullptr);
    const auto channel = other->getChannel("0");
    const auto survivor = other->createList(nullptr);
    const auto source = other->getChannel("2");
    other.reset();
    survivor->refresh();
    EXPECT_EQ(survivor->size(), 1U) << "a list keeps what it has when its manager has gone";
}

TEST_F(InputManagerTest, BuffersOfTheFormerHostChannelAreLetGoOf) {
    const auto channel = std::dynamic_pointer_cast<InputChannelImpl>(reading(addSource({1})));
    EXPECT_EQ(channel->readInteger(0), 7);
    channel->attachHostChannel(CountedRef<HostChannel>(&addSource({2})));
    EXPECT_EQ(hostCodeOf([&] { channel->readInteger(0); }), HostCode::invalidPointer);
}

TEST_F(InputManagerTest, UpdateTellsWhatIsNewAndBindsAfreshInSetup) {
    ScriptedChannel& source = addSource({4, 1});
    EXPECT_EQ(updatedAt(10), Positions(0, 10));
    inputs.alignReadPosition();
    host.data.wrapCount = 3;
    EXPECT_EQ(updatedAt(5), Positions(10, 3000005)) << "aligned without a channel";
    const auto channel = inputs.getChannel("4:1");
    inputs.alignReadPosition();
    EXPECT_EQ(hostCodeOf([&] { channel->readInteger(0); }), HostCode::invalidPointer);
    EXPECT_EQ(updatedAt(9), Positions(3000005, 3000009));
    EXPECT_EQ(channel->readInteger(0), 7);
    EXPECT_TRUE(inputs.hasActiveChannels());
    source.used = hostFalse;
    EXPECT_FALSE(inputs.hasActiveChannels());
    inputs.update();
    EXPECT_EQ(hostCodeOf([&] { channel->readInteger(0); }), HostCode::invalidPointer) << "unused";
    inputs.resetForAcquisition();
    std::erase(host.data.otherChannels, &source);
    ScriptedChannel& successor = addSource({4, 1});
    EXPECT_EQ(updatedAt(11), Positions(0, 3000011));
    EXPECT_TRUE(channel->isHostChannel(&source)) << "not in setup";
    EXPECT_EQ(hostCodeOf([&] { channel->readInteger(0); }), HostCode::invalidPointer);
    host.app.setupMode = hostTrue;
    inputs.update();
    EXPECT_TRUE(channel->isHostChannel(&successor));
    const CountedRef<HostChannelList> claimed(&host.script.make<ScriptedChannelList>());
    EXPECT_EQ(host.callsOf([&] { inputs.claimChannels(claimed); }),
              "ChannelList.addChannel(HostChannel)");
    host.data.otherChannels.clear();
    inputs.update();
    EXPECT_EQ(saved(), none + "\n") << "a channel that is gone was kept";
}

TEST_F(InputManagerTest, SetupKeepsTheIndicesInEitherForm) {
    auto& document = host.makeDocument(L"Setup", true);
    inputs.loadSetup(nodeOver(document));
    auto& list = document.root->addNew(L"InputList");
    using Entry = std::array<const wchar_t*, 3>;
    for (const auto& [name, id, index] :
         {Entry{L"Input", L"0", L"4;1;2"}, Entry{L"Input", L"x", L"4:9"},
          Entry{L"Output", L"2", L"4:8"}, Entry{L"Input", L"3", L""},
          Entry{L"Input", L"4", L"4:1;2"}, Entry{L"Input", L"5", L"6,7"}}) {
        list.addNew(name).values = {{L"Id", id}, {L"Index", index}};
    }
    addSource({4, 1, 2});
    inputs.loadSetup(nodeOver(document));
    EXPECT_TRUE(inputs.getChannel("4:1;2")->isAttached());
    EXPECT_EQ(saved(), none + " 0=4:1;2 1=6:7\n");
    inputs.update();
    EXPECT_EQ(saved(), none + "\n") << "nobody fetched them";
}

}  // namespace
