#include "station/document/setup_xml.h"

#include <fmt/ranges.h>

#include "station/document/setup_check.h"
#include "station/document/setup_text.h"

namespace station {
namespace {

using testing::HasSubstr;
using ElementRef = CountedRef<SetupElement>;

const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

SetupXmlError errorOf(const std::string& text) {
    try {
        fromSetupXml(text);
    } catch (const SetupXmlError& error) {
        return error;
    }
    return {0, 0, "no error", ""};
}

bool isSame(const ElementRef& a, const ElementRef& b) {
    const auto& x = a->getContent();
    const auto& y = b->getContent();
    const auto isSameValue = [](const auto& v, const auto& w) {
        return v.key == w.key && v.text == w.text;
    };
    return x.name == y.name && x.text == y.text &&
           std::ranges::equal(x.values, y.values, isSameValue) &&
           std::ranges::equal(x.attributes, y.attributes, isSame) &&
           std::ranges::equal(x.children, y.children, isSame);
}

/// Names and texts that XML reserves, changes or can't hold, beside harmless ones.
const std::vector<std::wstring> texts = {
    L"Name",        L"",        L" front",    L"\t",           L"line\r\nfeed", L"value",
    L"element",     L"version", L"1st",       L"xmlns",        L"\"quoted\"",   L"C:\\temp",
    L"Grün-ß-日本", L"😀",       L"<&>'\"]]>", L"\x01\x1F\x7F", L"\xFFFE\xFFFF", L"\xD800",
    L"\u00A0nbsp",  L"--> ?>",  L"\xFFFFFFFF"};

TEST(SetupXml, AnyTextAndAnyTreeComeBackTheSameByteForByte) {
    std::minstd_rand random(1);
    const auto any = [&] { return texts[random() % texts.size()]; };
    for (int round = 0; round < 300; ++round) {
        const auto root = makeObject<SetupElement>(any(), any());
        std::vector<ElementRef> all = {root};
        for (int step = 0; step < 30; ++step) {
            const ElementRef place = all[random() % all.size()];
            const auto added = makeObject<SetupElement>(any(), any());
            switch (random() % 3) {
                case 0:
                    place->setValue(any(), any());
                    break;
                case 1:
                    place->AddAttribute(added.get());
                    all.push_back(added);
                    break;
                default:
                    place->AddChild(added.get());
                    all.push_back(added);
            }
        }
        const std::string file = toSetupXml(*root);
        const auto loaded = fromSetupXml(file);
        ASSERT_TRUE(isSame(loaded, root)) << file;
        ASSERT_EQ(toSetupXml(*loaded), file);
    }
}

TEST(SetupXml, NumbersThatSeveralHaveAndWhatCannotBeLoadedAreReportedWithTheirLine) {
    const auto root = fromSetupXml(R"(<Plugin version="1"><List>
<M Id="0"><value key="Id">69</value>
<value key="ClockId">-1</value><L><value key="ChId">3</value></L></M>
<M Id="1"><value key="Id">69</value></M>
<M Id="1"><value key="ConfigId">x</value><L><value key="ChId">3</value></L></M>
</List><List><M Id="0"><value key="ConfigId">5</value><value key="Id">69</value></M>
<M><value key="ConfigId">5</value><value key="DeviceTypeId">2</value></M>
<M><value key="DeviceTypeId">2</value><value key="ConfigId">5</value></M></List><Output>
<OutputChannel><value key="ExpectedRate">1000000</value><Index>8:0;1</Index></OutputChannel>
<OutputChannel><value key="ExpectedRate">1e7</value><Index>8:0;0</Index></OutputChannel></Output>
<Output><OutputChannel><value key="Name">A</value><value key="ExpectedRate">-1</value>
<Index>8:0;1</Index></OutputChannel></Output></Plugin>)");
    EXPECT_THAT(findSetupFaults(*root),
                testing::ElementsAre("line 4: the Id 69 is that of line 2 too",
                                     "line 5: the Id 1 is that of line 4 too",
                                     "line 5: the ChId 3 is that of line 3 too",
                                     "line 8: the ConfigId 5 is that of line 7 too",
                                     "line 12: the Index 8:0;1 is that of line 9 too"));
    EXPECT_THAT(
        findUnreadable(*root),
        testing::ElementsAre("line 10: the ExpectedRate \"1e7\" is no number from 0 to 1000000",
                             "line 11: the ExpectedRate \"-1\" is no number from 0 to 1000000"));
}

TEST(SetupXml, DamageIsReportedWithItsPlaceAndCause) {
    using Case = std::tuple<std::string, std::size_t, std::size_t, std::string>;
    const std::string start = "<Setup version='1'>\n";
    const std::string end = "</Setup>";
    const std::string nul(1, '\0');
    const std::string many =
        fmt::format("{}", fmt::join(std::vector<std::string_view>(mostSetupNodes, "<a/>"), ""));
    const std::vector<Case> cases = {
        {"", 1, 1, "empty"},
        {" \n", 2, 1, "no element"},
        {"hello", 1, 1, "text outside"},
        {start + end + "<Setup/>", 2, 10, "second"},
        {"<!DOCTYPE Setup>" + start + end, 1, 11, "document type"},
        {start + "ü <a></b>" + end, 2, 8, "mismatch"},
        {start + "\xFF" + end, 2, 1, "UTF-8"},
        {"\xFF\xFE<" + nul, 1, 1, "UTF-8"},
        {start + "a" + nul + end, 2, 2, "control character"},
        {start + "a&#x00;b" + end, 2, 2, "no character 0"},
        {start + "<a>&#xD800;</a>" + end, 2, 2, "names no character"},
        {"<Setup/>", 1, 2, "no setup file"},
        {"<svg version='1.1'/>", 1, 2, "no setup file"},
        {"<Setup version='0'/>", 1, 2, "no setup file"},
        {"<value version='1'/>", 1, 2, "begin with <value>"},
        {start + "<element/>" + end, 2, 2, "no attribute \"name\""},
        {start + "<value>a</value>" + end, 2, 2, "no attribute \"key\""},
        {start + "<value key='a'><b/></value>" + end, 2, 2, "nothing else"},
        {start + "<value key='a' b=''/>" + end, 2, 2, "nothing else"},
        {start + "<value key='a'/>\n<value key='a'/>" + end, 3, 2, "already"},
        {start + "\n<a>" + std::string(longestSetupText + 1, 'x') + "</a>" + end, 3, 2, "1048576"},
        {start + many + end, 2, 3999998, "1000000 elements"},
        {start + std::string(largestSetupFile, '\n') + end, 67108846, 1, "67108864 bytes"},
    };
    for (const auto& [text, line, column, cause] : cases) {
        const SetupXmlError error = errorOf(text);
        EXPECT_THAT(error.what(), HasSubstr(cause)) << text;
        EXPECT_EQ(error.getLine(), line) << text;
        EXPECT_EQ(error.getColumn(), column) << text;
    }
    for (const auto* quoted : {"\"", "\"a", "\"a\"b", "\"a\"b\"", R"("\")", R"("\x")", R"("\u{}")",
                               R"("\u{0}")", R"("\u{1G}")", R"("\u1F")", R"("\u{100000000}")"}) {
        EXPECT_THAT(errorOf(start + quoted + end).what(), HasSubstr("double quote")) << quoted;
    }
}

}  // namespace
}  // namespace station
