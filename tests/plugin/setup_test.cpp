#include "tests/plugin/plugin_bench.h"

namespace {

using testing::HasSubstr;

constexpr const char* noNumber = "Node does not contain expected type!";
constexpr const char* outOfRange = "Value is out of range!";
constexpr const char* notPaired =
    "OutputFactory: beginLoadSetup and endLoadSetup not called correctly at start and end of "
    "onLoadSetup event.";

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
        EXPECT_EQ(settings(saved, true), "0");
        return saved.root->asText();
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
            EXPECT_EQ(event(number, input), "array 80070057") << number;
        }
        EXPECT_EQ(eventOf(number, {}), "array 80070057") << number;
        EXPECT_EQ(eventOf(number, elements), number == 157 ? "0" : "array 80070057") << number;
        host.script.nullOperation("HostVariantArray::copy");
        EXPECT_EQ(eventOf(number, elements), "call 80004005") << number;
        host.script.heal();
    }
    EXPECT_EQ(eventOf(158, {elements[0], elements[1], variantOf(false)}), "array 80070057");
    EXPECT_EQ(heldChannels(), 7) << "nothing is released before all elements are there";
}

TEST_F(SetupEventTest, NonsenseInSettingsIsADefaultOrAnErrorAndLaterOnesLoad) {
    const std::wstring nines(23, L'9');
    const struct {
        const wchar_t* key;
        std::wstring text;
        const char* outcome;
        const char* savedAs;
    } cases[] = {
        {L"SyncMode", L"abc", noNumber, ""},
        {L"SyncMode", nines, outOfRange, ""},
        {L"ClockSource", L"maybe", "0", "GNSSClock @Id=\"0\" SyncMode=\"12\"\n"},
        {L"ClockId", L"x", "0", "ClockId=\"0\""},
        {L"ClockId", L"77", "0", "ClockId=\"1\""},
        {L"DeviceTypeId", nines, "0", "DeviceTypeId=\"0\""},
        {L"DeviceTypeId", L"4711", "0", "DeviceTypeId=\"65535\""},
        {L"ConfigId", L"", "0", "ConfigId=\"0\""},
        {L"ConfigId", L"-1", "0", "ConfigId=\"15\""},
    };
    for (const auto& entry : cases) {
        Document& damaged = settingsWith({DeviceTypeInfo::canComboId});
        const auto replaceIn = [&](ScriptedElement& element) {
            for (auto& [key, text] : element.values) {
                text = key == entry.key ? entry.text : text;
            }
        };
        replaceIn(*damaged.root->children.at(0)->children.at(0));
        replaceIn(*damaged.root->children.at(1)->children.at(0));
        EXPECT_EQ(settings(damaged, false), entry.outcome);
        EXPECT_THAT(savedSettings(), HasSubstr(entry.savedAs)) << entry.outcome;
        EXPECT_EQ(settings(settingsWith({DeviceTypeInfo::canComboId}), false), "0");
        EXPECT_THAT(savedSettings(), HasSubstr("DeviceTypeId=\"1\" ConfigId=\"1\""));
    }
}

/// What is left of a setup whose load failed in the middle is told to the user at the next one: the
/// object must go. What it has goes on working, and a new object loads.
TEST_F(SetupEventTest, NonsenseInSetupIsSkippedOrAnErrorAfterWhichANewObjectLoads) {
    EXPECT_EQ(setup(document, true), "0");
    const std::string good = document.root->asText();
    const struct {
        const wchar_t* list;
        const wchar_t* key;
        std::wstring text;
        const char* outcome;
    } cases[] = {
        {L"OutputList", L"ColorCounter", L"abc", noNumber},
        {L"OutputList", L"ColorCounter", std::wstring(23, L'9'), outOfRange},
        {L"OutputList", L"Id", L"x", "0"},
        {L"CmpDevices", L"ChId", L"x", "0"},
        {L"CmpDevices", L"ChId", L"77", "0"},
    };
    for (const auto& entry : cases) {
        Document& damaged = newDocument();
        EXPECT_EQ(setup(damaged, true), "0");
        ScriptedElement* place = damaged.root->find(entry.list);
        while (place->values.empty() || (place->values.front().first != entry.key &&
                                         place->values.back().first != entry.key)) {
            place = place->children.at(0);
        }
        std::find_if(place->values.begin(), place->values.end(), [&](const auto& value) {
            return value.first == entry.key;
        })->second = entry.text;
        EXPECT_EQ(setup(damaged, false), entry.outcome);
        if (entry.outcome != std::string("0")) {
            host.app.errors.clear();
            EXPECT_EQ(setup(document, false), notPaired);
            EXPECT_THAT(host.app.errors, testing::SizeIs(1));
            EXPECT_EQ(startMeasurement(), "0");
            EXPECT_EQ(outcomeOf([&] { return plugin->onGetData(); }), "0");
            EXPECT_EQ(setup(newDocument(), true), "0");
            makePlugin();
            equip({DeviceTypeInfo::canComboId});
        }
        EXPECT_EQ(heldChannels(), 7);
        EXPECT_EQ(setup(document, false), "0");
        Document& again = newDocument();
        EXPECT_EQ(setup(again, true), "0");
        EXPECT_EQ(again.root->asText(), good);
    }
}

}  // namespace
