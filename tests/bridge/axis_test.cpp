#include <gmock/gmock.h>

#include "bridge/output/axis_properties.h"
#include "bridge/output/axis_writing.h"
#include "bridge/output/properties_impl.h"
#include "tests/bridge/bridge_bench.h"

namespace {

using namespace Kestrova::Utils::Kcom;
using ::testing::ElementsAre;
using ::testing::Pair;

class AxisTest : public BridgeTest {
  protected:
    ScriptedAxisInfo& info = host.script.make<ScriptedAxisInfo>();

    std::string written(const AxisProperties& axis) {
        return callsOf([&] { writeAxis(axis, CountedRef<HostAxisInfo>(&info)); });
    }
};

TEST_F(AxisTest, NewAxisIsWrittenWithItsDefaultsInOrder) {
    EXPECT_EQ(written(AxisPropertiesFloatLinearFunc()),
              "AxisInfo.setAxisType(2), AxisInfo.setLabelB(\"-\"), AxisInfo.setLabelA(\"-\"), "
              "AxisInfo.setStyle(3), AxisInfo.getDisplay, AxisDisplay.setValue(0), "
              "AxisInfo.getDisplay, AxisDisplay.setFlag(false), AxisInfo.setStart(0), "
              "AxisInfo.setStep(0)");
}

TEST_F(AxisTest, ValuesFollowTheClassOfTheAxis) {
    AxisPropertiesString texts;
    texts.setSize(2);
    texts.setValue(1, "\xC3\xA4");
    texts.setLabelA("a");
    texts.setStyle(0);
    texts.setStyle(-1);
    texts.setDisplayFlag(true);
    written(texts);
    EXPECT_THAT(info.texts, ElementsAre(Pair(0, L""), Pair(1, L"\x00E4")));
    EXPECT_EQ(info.labelA + info.labelB, L"a-");
    EXPECT_EQ(info.style, 0) << "a negative style counts";
    EXPECT_EQ(info.display.flag, hostTrue);

    AxisPropertiesFloat numbers;
    numbers.setSize(2);
    numbers.setValue(0, 2.5);
    written(numbers);
    EXPECT_THAT(info.numbers, ElementsAre(Pair(0, 2.5), Pair(1, 0.0)));
    numbers.setSize(2);
    EXPECT_EQ(numbers.getValue(0), 0.0) << "an old value was kept";
}

TEST_F(AxisTest, PropertyDocumentsAreNodes) {
    PropertiesImpl properties;
    EXPECT_EQ(hostCodeOf([&] { properties.getNode("a"); }), HostCode::invalidPointer);
    auto& set = host.script.make<ScriptedPropertySet>();
    properties.attachSet(CountedRef<HostPropertySet>(&set));
    EXPECT_EQ(properties.getNode("a"), nullptr);
    EXPECT_EQ(properties.getChildNode("a", nullptr), nullptr);
    auto& document = host.makeDocument(L"Root", true);
    set.documents[L"\x00E4"] = &document;
    EXPECT_EQ(properties.getNode("\xC3\xA4")->GetName(), "Root");
    auto& other = host.makeDocument(L"Parent", true);
    other.root->addNew(L"Child", L"text");
    properties.getChildNode("\xC3\xA4", nodeOver(other))->WriteValue("Key", "1", "");
    EXPECT_EQ(document.root->asText(), "Root Key=\"1\"\n  Parent\n    Child \"text\"\n");
    properties.addNode("new");
    EXPECT_TRUE(set.documents.contains(L"new"));
}

}  // namespace
