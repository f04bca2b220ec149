#include <tuple>

#include "plugin/identity.h"
#include "tests/plugin/plugin_rig.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

/// What an event leaves in its result: the tag (that of `usedResult` is 8), how many bytes of the
/// payload are written, and these.
using Answer = std::tuple<std::uint16_t, int, std::uint64_t>;

constexpr Answer nothing(8, 0, 0);

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
    constexpr std::uint32_t hundredth = 0x3C23D70A;  // 0.01 as a 32-bit float
    const std::map<std::int32_t, Answer> answers = {
        {105, nothing},    {106, {11, 2, 0}}, {109, {11, 2, 0}}, {110, {8, 2, 65535}},
        {111, nothing},    {113, nothing},    {115, nothing},    {117, nothing},
        {118, nothing},    {120, nothing},    {129, nothing},    {130, nothing},
        {131, nothing},    {133, nothing},    {134, nothing},    {136, {4, 4, hundredth}},
        {154, nothing},    {155, nothing},    {156, nothing},    {157, nothing},
        {158, {19, 4, 1}}, {159, {19, 4, 1}}, {169, {8, 2, 1}},  {173, {11, 2, 0}},
        {177, nothing},    {178, {8, 4, 3}},  {186, nothing},
    };
    EXPECT_EQ(connect(), "success");
    for (std::int32_t event = 100; event <= 190; ++event) {
        if ((event >= 179 && event <= 182) || event == 185) {
            continue;  // they need a window
        }
        const auto expected = answers.find(event);
        const bool handled = expected != answers.end();
        const HostVariant input = inputOf(event);
        HostVariant result = usedResult();
        host.script.forget();
        EXPECT_EQ(this->event(event, input, &result), handled ? "success" : "notHandled") << event;
        const auto& [tag, bytes, payload] = handled ? expected->second : nothing;
        EXPECT_EQ(static_cast<std::uint16_t>(result.type), tag) << event;
        const int unused = bytes == 0 ? 0 : 64 - 8 * bytes;
        EXPECT_EQ(result.bits << unused >> unused, bytes == 0 ? untouched : payload) << event;
        if (!handled) {
            EXPECT_THAT(host.script.calls(), IsEmpty()) << event;
        }
        std::string read;  // of the array, in its order
        for (const std::string& call : host.script.calls()) {
            read += call.starts_with("HostVariantArray::getElement") ? call.substr(29, 1) : "";
        }
        EXPECT_EQ(read, event == 157 ? "00" : event == 158 ? "0123" : event == 159 ? "012" : "");
    }
}

TEST_F(EventTest, LeadingClockIsReportedInTwoKindsOfBoolean) {
    for (const bool withMaster : {false, true}) {
        equip({DeviceTypeInfo::canComboId}, withMaster);
        for (const std::int32_t number : {106, 109}) {
            HostVariant result = usedResult();
            EXPECT_EQ(event(number, {}, &result), "success");
            EXPECT_EQ(result.boolean, withMaster ? 65535 : 0);
        }
        std::uint16_t hasMaster = 77;
        EXPECT_EQ(plugin->position32(&hasMaster), 0);
        EXPECT_EQ(hasMaster, withMaster ? 1 : 0);
    }
    std::uint32_t low = 0;
    std::uint32_t high = 0;
    host.gnssDevices.infos = {{1, L"satellites"}};
    host.clock.seconds = 0.5;  // as at the frame
    startMeasurement();
    deliver(1);
    counter.count = 6000;  // the module's time goes on with the computer's
    EXPECT_EQ(plugin->position33(&low, &high), 0);
    EXPECT_EQ(std::pair(low, high), std::pair(6500U, 0U));
}

TEST_F(EventTest, PositionsGiveTheirAnswersAndTwoRepeatAnOperation) {
    equip({DeviceTypeInfo::canComboId});
    std::uint16_t told[] = {77, 77, 77, 77, 77};
    std::int32_t seven = 0;
    EXPECT_EQ(plugin->position14(&told[0], &told[1]), 0);
    EXPECT_EQ(plugin->position17(&told[2]), 0);
    EXPECT_EQ(plugin->position29(&seven), 0);
    EXPECT_EQ(plugin->position38(&told[3], &told[4]), 0);
    EXPECT_THAT(told, ElementsAre(77, 1, 1, 77, 1));
    EXPECT_EQ(seven, 7);
    EXPECT_EQ(host.callsOf([&] { plugin->position20(); }),
              host.callsOf([&] { plugin->onStartAcquisition(); }));
    EXPECT_THAT(host.callsOf([&] { plugin->onPrepareAcquisition(); }),
                testing::HasSubstr("App.getHoldValue"));
    plugin->onGetData();  // starts the clocks
    EXPECT_EQ(host.callsOf([&] { plugin->position30(); }),
              host.callsOf([&] { plugin->onGetData(); }));
}

TEST_F(EventTest, ActiveOutputBringsDataAndClaims) {
    equip({DeviceTypeInfo::canComboId});
    EXPECT_NE(host.callsOf([&] { event(117); }), "");
    for (const std::int32_t number : {118, 186}) {
        host.script.forget();
        EXPECT_EQ(event(number, variantOf(&list)), "success");
        EXPECT_THAT(host.script.calls(), Contains("HostChannelExt::claim()").Times(7));
    }
    firstChannel().used = hostFalse;
    for (const std::int32_t number : {115, 117, 118, 186}) {
        host.script.forget();
        EXPECT_EQ(event(number, variantOf(&list)), "success");
        EXPECT_THAT(host.script.calls(), Not(Contains("HostChannelExt::claim()")));
        EXPECT_THAT(host.script.calls(), Not(Contains("HostData::getBufferState()")));
    }
}

TEST_F(EventTest, DisconnectedInputsAreLetGoOf) {
    equip({DeviceTypeInfo::canComboId});
    firstChannel().used = hostFalse;
    ScriptedChannel& source = host.makeChannel({4, 1});
    source.used = hostTrue;
    host.data.otherChannels = {&source};
    Document& document = newDocument();
    document.root->addNew(L"InputList").addNew(L"Input").values = {{L"Id", L"0"},
                                                                   {L"Index", L"4:1"}};
    EXPECT_EQ(setup(document, false), "success");
    EXPECT_GT(source.references(), 0);
    EXPECT_EQ(plugin->onDisconnectChannels(), 0);
    EXPECT_EQ(source.references(), 0);
}

class ConnectTest : public PluginTest {
  protected:
    std::string connectAt(std::int32_t major, std::int32_t minor) {
        host.app.version = {9, major, minor, 9, 9};
        host.app.errors.clear();
        return connect();
    }
};

TEST_F(ConnectTest, HostThatIsTooOldGetsTheReasonAndStaysConnected) {
    EXPECT_EQ(PluginIdentity::classIdText(), L"{8C1E7B52-5D0F-4E6B-9A37-C4186E2D905B}");
    const std::wstring text = L"Tessel3 Plugin \"CMP\" needs Kestrova X3 SP4 or newer.";
    for (const auto& [major, minor] : {std::pair{3, 3}, {2, 9}, {3, -1}, {-1, -1}, {0, 4}}) {
        EXPECT_EQ(connectAt(major, minor), "aborted") << major << '.' << minor;
        EXPECT_THAT(host.app.errors, ElementsAre(text));
        EXPECT_EQ(outcomeOf([&] { return plugin->onGetData(); }), "success");
    }
    for (const auto& [major, minor] : {std::pair{3, 4}, {3, 5}, {4, 0}, {4, -1}}) {
        EXPECT_EQ(connectAt(major, minor), "success") << major << '.' << minor;
        EXPECT_THAT(host.app.errors, IsEmpty());
        EXPECT_THAT(host.script.calls().back(), testing::StartsWith("HostApp::getVersionTriple"));
    }
    host.app.leavesVersion = true;
    EXPECT_EQ(connectAt(4, 0), "aborted");
    EXPECT_THAT(host.app.errors, ElementsAre(text));
    EXPECT_THAT(host.script.calls().back(), testing::StartsWith("HostApp::writeError"))
        << "and no further question";
}

TEST_F(ConnectTest, ObjectAnswersForItsInterfacesAndNoOthers) {
    for (HostObject* const asked : {object.get(), static_cast<HostObject*>(plugin.get()),
                                    static_cast<HostObject*>(events.get())}) {
        const CountedRef<HostObject> counted(asked);
        CountedRef<HostObject> base;
        CountedRef<IPlugin2> oldest;
        EXPECT_EQ(counted.queryTo(base) + counted.queryTo(oldest), 0);
        EXPECT_TRUE(base == object && oldest.get() == plugin.get());
        void* found = asked;
        EXPECT_EQ(asked->queryInterface(HostApp::id, &found), HostCode::noInterface);
        EXPECT_EQ(found, nullptr);
    }
    std::uint32_t count = 1;
    EXPECT_EQ(plugin->getTypeInfoCount(&count), 0);
    EXPECT_EQ(count, 0U);
    EXPECT_LT(events->invoke(1, 0, 0, nullptr, 0, nullptr), 0);
}

}  // namespace
