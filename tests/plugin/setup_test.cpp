#include "tests/plugin/plugin_rig.h"

namespace {

using testing::HasSubstr;

constexpr const char* noNumber = "Node does not contain expected type!";
constexpr const char* outOfRange = "Value is out of range!";

class SetupEventTest : public PluginTest {
  protected:
    SetupEventTest() { equip({DeviceTypeInfo::canComboId}); }

    std::ptrdiff_t heldChannels() const {
        const auto& mounted = host.groupOfPlugins.mounted;
        return std::count_if(mounted.begin(), mounted.end(),
                             [](const auto* channel) { return channel->references() != 0; });
    }
    std::string savedSettings() {
        Document& saved = newDocument();
        EXPECT_EQ(settings(saved, true), "success");
        return saved.root->asText();
    }

    /// Wherever the key is, the text stands in place of its value.
    static void damage(ScriptedElement& element, const std::wstring& key,
                       const std::wstring& text) {
        if (const auto place = element.findValue(key); place != element.values.end()) {
            place->second = text;
        }
        for (ScriptedElement* const child : element.children) {
            damage(*child, key, text);
        }
    }

    Document& document = newDocument();
};

TEST_F(SetupEventTest, ArrayMustBeOneAndHaveTheElements) {
    HostVariant null;
    null.type = HostVariantType::VariantArray;
    auto& shifted = host.script.make<ScriptedVariantArray>(std::vector(4, variantOf(&document)), 1);
    const auto elements = std::vector{variantOf(&document), variantOf(document.root)};
    for (const std::int32_t number : {157, 158, 159}) {
        for (const HostVariant& input :
             {HostVariant(), null, variantOf(&document), variantOf(shifted)}) {
            EXPECT_EQ(event(number, input), "array invalidArgument") << number;
        }
        EXPECT_EQ(eventOf(number, {}), "array invalidArgument") << number;
        EXPECT_EQ(eventOf(number, elements), number == 157 ? "success" : "array invalidArgument")
            << number;
        host.script.failOperation("HostVariantArray::copy", CallScript::noObject);
        EXPECT_EQ(eventOf(number, elements), "call failed") << number;
        host.script.heal();
    }
    EXPECT_EQ(eventOf(158, {elements[0], elements[1], variantOf(false)}), "array invalidArgument");
    EXPECT_EQ(heldChannels(), 7) << "nothing is released before all elements are there";
}

TEST_F(SetupEventTest, LoadWithoutATreeMakesTheChannelsUnlessTheyAreToBeKept) {
    EXPECT_EQ(setup(nullptr, document.root, false, false), "KCOM document is not set!");
    EXPECT_EQ(setup(&document, nullptr, true, true), "success");
    EXPECT_EQ(heldChannels(), 7) << "writing without an element does nothing";
    EXPECT_EQ(setup(&document, nullptr, false, true), "success");
    EXPECT_EQ(heldChannels(), 0);
    EXPECT_EQ(setup(&document, nullptr, false, false), "success");
    EXPECT_EQ(heldChannels(), 7);
    EXPECT_EQ(setup(document, true), "success");
    document.root->children.pop_back();
    EXPECT_EQ(document.root->find(L"CmpDevices"), nullptr);
    EXPECT_EQ(setup(document, false), "success");
    EXPECT_EQ(heldChannels(), 7);
    EXPECT_EQ(plugin->onDisconnectChannels(), 0);
    EXPECT_EQ(heldChannels(), 0);
    for (int times = 0; times < 2; ++times) {
        EXPECT_EQ(plugin->onClearSetup(), 0);
        EXPECT_EQ(heldChannels(), 7);
        EXPECT_EQ(host.groupOfPlugins.mounted.back()->indices.back(), 6) << "from 0 again";
    }
}

TEST_F(SetupEventTest, NonsenseInSettingsIsADefaultOrAnErrorAndLaterOnesLoad) {
    const std::wstring nines(23, L'9');
    for (const auto& [key, text, outcome, savedAs] :
         {std::tuple(L"SyncMode", nines, outOfRange, ""),
          {L"ClockId", L"x", "success", "ClockId=\"0\""},
          {L"ClockId", L"77", "success", "ClockId=\"1\""},
          {L"DeviceTypeId", nines, "success", "DeviceTypeId=\"0\""},
          {L"DeviceTypeId", L"4711", "success", "DeviceTypeId=\"65535\""},
          {L"ConfigId", L"", "success", "ConfigId=\"0\""},
          {L"ConfigId", L"-1", "success", "ConfigId=\"15\""}}) {
        Document& damaged = settingsWith({DeviceTypeInfo::canComboId});
        damage(*damaged.root, key, text);
        EXPECT_EQ(settings(damaged, false), outcome);
        EXPECT_THAT(savedSettings(), HasSubstr(savedAs)) << outcome;
        EXPECT_EQ(settings(settingsWith({DeviceTypeInfo::canComboId}), false), "success");
        EXPECT_THAT(savedSettings(), HasSubstr("DeviceTypeId=\"1\" ConfigId=\"1\""));
    }
}

/// What is left of a setup whose load failed in the middle is told to the user at the next one: the
/// object must go. What it has goes on working, and a new object loads.
TEST_F(SetupEventTest, NonsenseInSetupIsSkippedOrAnErrorAfterWhichANewObjectLoads) {
    EXPECT_EQ(setup(document, true), "success");
    const std::string good = document.root->asText();
    for (const auto& [key, text, outcome] :
         {std::tuple(L"ColorCounter", L"abc", noNumber),
          {L"ColorCounter", L"99999999999999999999999", outOfRange},
          {L"Id", L"x", "success"},
          {L"ChId", L"x", "success"},
          {L"ChId", L"77", "success"}}) {
        Document& damaged = newDocument();
        EXPECT_EQ(setup(damaged, true), "success");
        damage(*damaged.root, key, text);
        EXPECT_EQ(setup(damaged, false), outcome);
        if (outcome != std::string("success")) {
            host.app.errors.clear();
            EXPECT_THAT(setup(document, false), HasSubstr("endLoadSetup not called correctly at"));
            EXPECT_THAT(host.app.errors, testing::SizeIs(1));
            EXPECT_EQ(startMeasurement(), "success") << "what it has goes on working";
            makePlugin();
            equip({DeviceTypeInfo::canComboId});
        }
        EXPECT_EQ(heldChannels(), 7);
        EXPECT_EQ(setup(document, false), "success");
        Document& again = newDocument();
        EXPECT_EQ(setup(again, true), "success");
        EXPECT_EQ(again.root->asText(), good);
    }
}

/// A start drops the sources that nobody holds.
TEST_F(SetupEventTest, InputsOfASetupFollowTheHostAndAreSavedAgain) {
    ScriptedChannel& source = host.makeChannel({4, 1});
    source.used = hostTrue;
    host.data.otherChannels.push_back(&source);
    EXPECT_EQ(setup(document, true), "success");
    auto& input = document.root->find(L"InputList")->addNew(L"Input");
    input.values = {{L"Id", L"0"}, {L"Index", L"4:1"}};
    EXPECT_EQ(setup(document, false), "success");
    const auto saved = [this] {
        Document& fresh = newDocument();
        EXPECT_EQ(setup(fresh, true), "success");
        return fresh.root->asText();
    };
    EXPECT_EQ(saved(), document.root->asText());
    EXPECT_EQ(plugin->onStartAcquisition(), 0);
    EXPECT_THAT(saved(), testing::Not(HasSubstr("Index=\"4")));
    EXPECT_EQ(setup(document, false), "success");

    ScriptedChannelList list(host.script);
    EXPECT_THAT(host.callsOf([&] { event(118, variantOf(&list)); }), HasSubstr("addChannel"));
    EXPECT_THAT(host.callsOf([&] { event(115); }), HasSubstr("Data.getBufferState"));
    EXPECT_THAT(host.callsOf([&] { plugin->onGetData(); }),
                testing::StartsWith("App.isSetupMode, App.getData, Data.getBufferState"));
    EXPECT_THAT(savedSettings(), HasSubstr("GNSSClock @Id=\"0\""));

    const auto isKept = [&](std::int32_t number, const HostVariant& with = {}) {
        EXPECT_EQ(setup(document, false), "success");
        EXPECT_EQ(event(number, with), "success");
        return saved().find("Index=\"4") != std::string::npos;
    };
    EXPECT_FALSE(isKept(111));
    EXPECT_FALSE(isKept(133));
    EXPECT_FALSE(isKept(186));
    EXPECT_TRUE(isKept(131));
    EXPECT_FALSE(isKept(131, variantOf(&source)));
    EXPECT_TRUE(isKept(129));
    EXPECT_EQ(setup(document, false), "success");
    host.data.otherChannels.clear();
    EXPECT_EQ(event(129), "success");
    EXPECT_THAT(saved(), testing::Not(HasSubstr("Index=\"4"))) << "the host has it no more";
}

}  // namespace
