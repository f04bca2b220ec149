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
        std::string read;  // of the array, in its order
        for (const std::string& call : host.script.calls()) {
            read += call.starts_with("HostVariantArray::getElement") ? call.substr(29, 1) : "";
        }
        EXPECT_EQ(read, event == 157 ? "00" : event == 158 ? "0123" : event == 159 ? "012" : "");
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

TEST_F(EventTest, ActiveOutputBringsDataAndClaims) {
    equip({DeviceTypeInfo::canComboId});
    EXPECT_NE(host.callsOf([&] { event(117); }), "");
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

}  // namespace
