#include <limits>
#include <map>
#include <optional>

#include "tests/plugin/plugin_bench.h"

namespace {

using testing::Contains;
using testing::IsEmpty;
using testing::Not;

/// What an event leaves in its result.
struct Answer {
    std::optional<std::uint16_t> tag;  ///< none: as the host had it
    int payloadBytes = 0;              ///< that are written; 0 leaves the payload alone
    std::uint64_t payload = 0;
};

constexpr Answer nothing;

/// Every event that is handled, but for those of the windows.
const std::map<std::int32_t, Answer>& handledEvents() {
    constexpr std::uint32_t hundredth = 0x3C23D70A;  // 0.01 as a 32-bit float
    static const std::map<std::int32_t, Answer> answers = {
        {105, nothing},    {106, {11, 2, 0}}, {109, {11, 2, 0}}, {110, {{}, 2, 65535}},
        {111, nothing},    {113, nothing},    {115, nothing},    {117, nothing},
        {118, nothing},    {120, nothing},    {129, nothing},    {130, nothing},
        {131, nothing},    {133, nothing},    {134, nothing},    {136, {4, 4, hundredth}},
        {154, nothing},    {155, nothing},    {156, nothing},    {157, nothing},
        {158, {19, 4, 1}}, {159, {19, 4, 1}}, {169, {{}, 2, 1}}, {173, {11, 2, 0}},
        {177, nothing},    {178, {{}, 4, 3}}, {186, nothing},
    };
    return answers;
}

bool isOfWindow(std::int32_t event) {
    return (event >= 179 && event <= 182) || event == 185;
}

class EventTest : public PluginTest {
  protected:
    static constexpr std::uint64_t untouched = 0xA5A5A5A5A5A5A5A5;

    static HostVariant usedResult() {
        HostVariant result;
        result.type = HostVariantType::Text;
        result.bits = untouched;
        return result;
    }
    /// An input that the event can work on.
    HostVariant inputOf(std::int32_t event) {
        if (event == 118) {
            return variantOf(&list);
        }
        if (event == 177) {
            return variantOf(&host.gnssCollection);
        }
        if (event < 157 || event > 159) {
            return {};
        }
        Document& document = newDocument();
        return variantOf(host.script.make<ScriptedVariantArray>(std::vector<HostVariant>{
            variantOf(&document), variantOf(document.root), variantOf(true), variantOf(true)}));
    }
    /// Loads a setup with one input, which is held until the inputs are next gone through.
    void loadInput() {
        Document& document = newDocument();
        auto& input = document.root->addNew(L"InputList").addNew(L"Input");
        input.values = {{L"Id", L"0"}, {L"Index", L"1:2"}};
        EXPECT_EQ(setup(document, false), "0");
        host.script.forget();
    }
    ScriptedChannelList list{host.script};
};

TEST_F(EventTest, EachNumberHasItsCodeAndLeavesTheRestOfTheResultAlone) {
    EXPECT_EQ(connect(), "0");
    for (std::int32_t event = 100; event <= 190; ++event) {
        if (isOfWindow(event)) {
            continue;
        }
        const auto expected = handledEvents().find(event);
        const bool handled = expected != handledEvents().end();
        const HostVariant input = inputOf(event);
        HostVariant result = usedResult();
        host.script.forget();
        EXPECT_EQ(this->event(event, input, &result), handled ? "0" : "1") << event;
        const Answer answer = handled ? expected->second : nothing;
        EXPECT_EQ(static_cast<std::uint16_t>(result.type), answer.tag.value_or(8)) << event;
        if (answer.payloadBytes == 0) {
            EXPECT_EQ(result.bits, untouched) << event;
        } else {
            const int unused = 64 - 8 * answer.payloadBytes;
            EXPECT_EQ(result.bits << unused >> unused, answer.payload) << event;
        }
        if (!handled) {
            EXPECT_THAT(host.script.calls(), IsEmpty()) << event;
        }
    }
    for (const std::int32_t far : {std::numeric_limits<std::int32_t>::min(), -105, 0,
                                   std::numeric_limits<std::int32_t>::max()}) {
        EXPECT_EQ(event(far), "1");
    }
}

TEST_F(EventTest, LeadingClockIsToldInTwoKindsOfBoolean) {
    for (const bool withMaster : {false, true}) {
        equip({DeviceTypeInfo::canComboId}, withMaster);
        for (const std::int32_t number : {106, 109}) {
            HostVariant result = usedResult();
            EXPECT_EQ(event(number, {}, &result), "0");
            EXPECT_EQ(result.boolean, withMaster ? 65535 : 0);
        }
        std::uint16_t hasMaster = 77;
        EXPECT_EQ(plugin->position32(&hasMaster), 0);
        EXPECT_EQ(hasMaster, withMaster ? 1 : 0);
    }
    std::uint32_t low = 0;
    std::uint32_t high = 0;
    EXPECT_EQ(plugin->position33(&low, &high), 0);
    EXPECT_EQ(std::pair(low, high), std::pair(0xFFFFFFFFU, 0xFFFFFFFFU)) << "it has no time yet";
    host.gnssDevices.infos = {{}};
    host.gnssDevices.infos[0].name = L"satellites";
    host.clock.seconds = 0.5;  // as at the frame
    startMeasurement();
    deliver(1);
    counter.count = 6000;  // the module's time goes on with the computer's
    EXPECT_EQ(plugin->position33(&low, &high), 0);
    EXPECT_EQ(std::pair(low, high), std::pair(6500U, 0U));
}

TEST_F(EventTest, PositionsWithAnAnswerWriteItAndNoMore) {
    std::uint16_t flag = 9;
    std::uint16_t other = 9;
    const auto answered = [&] { return std::pair<int, int>(std::exchange(flag, 9), other); };
    EXPECT_EQ(plugin->position14(&other, &flag), 0);
    EXPECT_EQ(answered(), std::pair(1, 9));
    EXPECT_EQ(plugin->position17(&flag), 0);
    EXPECT_EQ(answered(), std::pair(1, 9));
    EXPECT_EQ(plugin->position38(&other, &flag), 0);
    EXPECT_EQ(answered(), std::pair(1, 9));
    std::int32_t number = 0;
    EXPECT_EQ(plugin->position29(&number), 0);
    EXPECT_EQ(number, 7);
}

TEST_F(EventTest, ActiveInputAloneCountsForAlignmentAndClaimButNotForData) {
    host.data.otherChannels.push_back(&host.makeChannel({1, 2}));
    host.data.otherChannels.front()->used = hostTrue;
    EXPECT_EQ(connect(), "0");
    loadInput();
    EXPECT_EQ(callsOf([&] { event(117); }), "");
    EXPECT_EQ(callsOf([&] { event(115); }),
              "channels App.getData Data.getBufferState App.getData Data.getWrapCount");
    EXPECT_EQ(callsOf([&] { event(118, variantOf(&list)); }), "channels ChannelList.addChannel");
    event(111);  // nobody holds the input
    for (const std::int32_t number : {115, 117}) {
        EXPECT_EQ(callsOf([&] { event(number); }), "") << number;
    }
    EXPECT_EQ(callsOf([&] { event(118, variantOf(&list)); }), "");
}

TEST_F(EventTest, ActiveOutputBringsDataAndClaims) {
    equip({DeviceTypeInfo::canComboId});
    EXPECT_NE(callsOf([&] { event(117); }), "");
    for (const std::int32_t number : {118, 186}) {
        host.script.forget();
        EXPECT_EQ(event(number, variantOf(&list)), "0");
        EXPECT_THAT(host.script.operations(), Contains("HostChannelExt::claim").Times(7));
    }
    firstChannel().used = hostFalse;
    for (const std::int32_t number : {115, 117, 118, 186}) {
        host.script.forget();
        EXPECT_EQ(event(number, variantOf(&list)), "0");
        EXPECT_THAT(host.script.operations(), Not(Contains("HostChannelExt::claim")));
        EXPECT_THAT(host.script.operations(), Not(Contains("HostData::getBufferState")));
    }
}

TEST_F(EventTest, HostObjectIsAskedForWhatTheEventNeeds) {
    host.data.otherChannels.push_back(&host.makeChannel({1, 2}));
    ScriptedChannel& channel = *host.data.otherChannels.front();
    EXPECT_EQ(connect(), "0");
    EXPECT_EQ(event(118, variantOf(&channel)), "1") << "no list of channels";
    EXPECT_EQ(event(118, variantOf(nullptr)), "1");
    EXPECT_EQ(event(177, variantOf(&channel)), "call 80004003");
    EXPECT_EQ(event(177, variantOf(nullptr)), "call 80004003");
    for (HostObject* const other :
         {static_cast<HostObject*>(nullptr), static_cast<HostObject*>(&list)}) {
        loadInput();
        EXPECT_EQ(event(131, variantOf(other)), "0");
        EXPECT_EQ(channel.references(), 1) << "no channel, so the input stays";
    }
    EXPECT_EQ(event(131, variantOf(&channel)), "0");
    EXPECT_EQ(channel.references(), 0);
    host.script.failOperation("HostChannel::queryInterface", HostCode::failed);
    for (const std::int32_t number : {118, 131, 177}) {
        EXPECT_EQ(event(number, variantOf(&channel)), "call 80004005") << number;
    }
}

TEST_F(EventTest, InputOfAnotherKindIsNoObject) {
    EXPECT_EQ(connect(), "0");
    HostVariant number;
    number.type = HostVariantType::UnsignedInt;
    number.uint32 = 5;
    EXPECT_EQ(event(118, number), "1");
    EXPECT_EQ(event(131, number), "0");
    EXPECT_EQ(event(177, number), "call 80004003");
}

TEST_F(EventTest, RebindDropsTheInputsWhoseChannelIsGone) {
    host.data.otherChannels.push_back(&host.makeChannel({1, 2}));
    ScriptedChannel& channel = *host.data.otherChannels.front();
    EXPECT_EQ(connect(), "0");
    loadInput();
    EXPECT_EQ(event(129), "0");
    EXPECT_EQ(channel.references(), 1);
    host.data.otherChannels.clear();
    EXPECT_EQ(event(129), "0");
    EXPECT_EQ(channel.references(), 0);
}

}  // namespace
