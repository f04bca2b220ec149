#include "station/document/setup_xml.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "station/document/setup_text.h"

namespace station {
namespace {

using testing::HasSubstr;
using ElementRef = CountedRef<SetupElement>;

const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

std::string rewritten(const std::string& text) {
    return toSetupXml(*fromSetupXml(text));
}

SetupXmlError errorOf(const std::string& text) {
    try {
        fromSetupXml(text);
    } catch (const SetupXmlError& error) {
        return error;
    }
    return {0, 0, "no error", ""};
}

bool isSame(const SetupElement& a, const SetupElement& b);

bool isSame(const SetupElement::List& a, const SetupElement::List& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const auto& x, const auto& y) { return isSame(*x, *y); });
}

bool isSame(const SetupElement& a, const SetupElement& b) {
    const auto& x = a.getContent();
    const auto& y = b.getContent();
    return x.name == y.name && x.text == y.text && isSame(x.attributes, y.attributes) &&
           isSame(x.children, y.children) &&
           std::equal(
               x.values.begin(), x.values.end(), y.values.begin(), y.values.end(),
               [](const auto& v, const auto& w) { return v.key == w.key && v.text == w.text; });
}

/// Names and texts that XML reserves, changes or can't hold, beside harmless ones.
const std::vector<std::wstring> texts = {
    L"Name",
    L"",
    L" front",
    L"end ",
    L"\t",
    L"line\r\nfeed",
    L"value",
    L"element",
    L"attribute",
    L"version",
    L"name",
    L"key",
    L"1st",
    L"a:b",
    L"xmlns",
    L"XmlThing",
    L"\"quoted\"",
    L"C:\\temp",
    L"\"\\",
    L"Grün-ß-日本",
    L"😀",
    L"<&>'\"]]>",
    L"&#65;",
    L"\x01\x1F\x7F",
    L"\x85\x9F",
    L"\xFFFE\xFFFF",
    L"\xD800",
    L"\u00A0nbsp",
    L"a  b",
    L"--> ?>",
    std::wstring(1, wchar_t(-1)),
};

TEST(SetupXml, AnyTextAndAnyTreeComeBackTheSameByteForByte) {
    std::minstd_rand random(1);
    const auto any = [&] { return texts[random() % texts.size()]; };
    for (int round = 0; round < 300; ++round) {
        const auto root = makeCounted<SetupElement>(any(), any());
        std::vector<ElementRef> all = {root};
        for (int step = 0; step < 30; ++step) {
            const ElementRef place = all[random() % all.size()];
            const auto added = makeCounted<SetupElement>(any(), any());
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
        ASSERT_TRUE(isSame(*loaded, *root)) << file;
        ASSERT_EQ(toSetupXml(*loaded), file);
    }
}

TEST(SetupXml, IsReadableAndHasALongFormForWhatXmlCannotName) {
    const auto root = makeCounted<SetupElement>(L"Setup", L"");
    const auto id = makeCounted<SetupElement>(L"Id", L"7");
    const auto version = makeCounted<SetupElement>(L"version", L" 2");
    const auto module = makeCounted<SetupElement>(L"1st module", L"text");
    root->setValue(L"Name", L"Grün & \"C:\\temp\"");
    root->setValue(L"Blank", L" \n\x1F\x7F\\");
    root->AddAttribute(id.get());
    root->AddAttribute(version.get());
    root->AddChild(module.get());
    EXPECT_EQ(toSetupXml(*root), head +
                                     "<Setup version=\"1\" Id=\"7\">\n"
                                     "  <attribute name=\"version\">\" 2\"</attribute>\n"
                                     "  <value key=\"Name\">Grün &amp; \"C:\\temp\"</value>\n"
                                     "  <value key=\"Blank\">\" \\n\\u{1f}\\u{7f}\\\\\"</value>\n"
                                     "  <element name=\"1st module\">text</element>\n"
                                     "</Setup>\n");
}

TEST(SetupXml, WhatPeopleWriteIsKeptIncludingTheUnknown) {
    EXPECT_EQ(rewritten("\xEF\xBB\xBF<Setup other='a' version='1'>\r\n<!-- note -->\r\n"
                        "  <Future kind=\"x\" xmlns:n=\"urn:y\"><n:Deep>a<![CDATA[<b>]]></n:Deep>"
                        "</Future>\r\n  text &#x20AC;\r\n"
                        "<value key='Path'>C:\\temp</value></Setup><!-- end -->"),
              head +
                  "<Setup version=\"1\" other=\"a\">text €<value key=\"Path\">C:\\temp</value>\n"
                  "  <Future kind=\"x\">\n"
                  "    <attribute name=\"xmlns:n\">urn:y</attribute>\n"
                  "    <element name=\"n:Deep\">a&lt;b&gt;</element>\n"
                  "  </Future>\n"
                  "</Setup>\n");
}

TEST(SetupXml, DamageIsToldWithItsPlaceAndCause) {
    struct Case {
        std::string text;
        std::size_t line;
        std::size_t column;
        std::string cause;
    };
    const std::string start = "<Setup version='1'>\n";
    const std::string end = "</Setup>";
    const std::string nul(1, '\0');
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

TEST(SetupXml, NewerVersionIsToldAsSuch) {
    for (const auto* number : {"2", "99999999999999999999"}) {
        const auto error = errorOf(std::string("<Setup version='") + number + "'/>");
        EXPECT_THAT(error.what(), HasSubstr(std::string("its version is ") + number));
        EXPECT_EQ(error.getAdvice(), "Use a newer program");
    }
}

TEST(SetupXml, EndlessNestingIsRefusedAtTheLimitAndNotByTheStack) {
    const auto nested = [](std::size_t levels, const std::string& tag) {
        std::string text = "<s version='1'>";
        for (std::size_t i = 1; i < levels; ++i) {
            text += '<' + tag + ">\n";
        }
        for (std::size_t i = 1; i < levels; ++i) {
            text += "</" + tag.substr(0, tag.find(' ')) + '>';
        }
        return text + "</s>";
    };
    EXPECT_EQ(fromSetupXml(nested(SetupElement::maxDepth, "a"))->getContent().name, L"s");
    const auto error = errorOf(nested(1'000'000, "a"));
    EXPECT_THAT(error.what(), HasSubstr("more than 256 deep"));
    EXPECT_EQ(error.getLine(), SetupElement::maxDepth);
    EXPECT_THAT(errorOf(nested(SetupElement::maxDepth, "a b=''")).what(), HasSubstr("deep"));
}

}  // namespace
}  // namespace station
