#include "setup/node_values.h"
#include "setup/xml_exception.h"
#include "tests/support/setup_tree.h"

namespace {

using namespace Kestrova::Utils::Serialization;

class NodeTest : public ::testing::Test {
  protected:
    /// Reads a text as somebody's editor might have left it.
    template <typename T>
    T read(const std::string& text) {
        root->WriteValue("Key", text, text + "#");
        return ReadValueAs<T>(*root, "Key");
    }

    std::shared_ptr<Node> root = makeSetupTree("Root");
};
using NodeValues = NodeTest;

TEST_F(NodeTest, MissingChildIsADummyAllTheWayDown) {
    const auto dummy = root->GetChild("a");
    EXPECT_TRUE(dummy->IsDummy() && dummy->GetChild("b")->IsDummy() && dummy->Clone()->IsDummy());
    dummy->WriteValue("Key", "lost", "");
    EXPECT_EQ(ReadWithDefault(*dummy, "Key", "default"), "default");
    EXPECT_EQ(root->FindChild("a"), nullptr);
    root->GetOrAddChild("a");
    EXPECT_FALSE(root->GetOrAddChild("a")->IsDummy());
    EXPECT_EQ(root->GetChildCount(), 1);
}

TEST_F(NodeTest, CloneSharesNothingWithTheOriginal) {
    root->AddAttribute("Id", "0");
    root->AddChild("Child")->WriteValue("Key", "1", "");
    const auto clone = root->Clone();
    root->ClearChildren();
    root->ClearAttributes();
    EXPECT_EQ(toText(*root), "<Root version=\"1\" />\n");
    EXPECT_EQ(toText(*clone),
              "<Root version=\"1\" Id=\"0\">\n  <Child>\n    <value key=\"Key\">1</value>\n"
              "  </Child>\n</Root>\n");
    EXPECT_EQ(clone->GetChild("Child")->GetParent()->GetName(), "Root");
    EXPECT_EQ(clone->GetParent(), nullptr);
}

TEST_F(NodeTest, AddedNodeIsTheElementItself) {
    const auto node = root->CreateNode("Child", "");
    root->AddChild(node);
    node->SetText("changed later");
    EXPECT_EQ(root->GetChild(0)->GetText(), "changed later");
    node->Recreate("Other", "x");
    EXPECT_EQ(root->GetChild(0)->GetName(), "Child");
    node->CopyReference(root);
    EXPECT_EQ(node->GetName(), "Root");
}

TEST_F(NodeValues, OnlyForcedWritesSurviveADefault) {
    ForceWrite(*root, "A", std::uint16_t{65535});
    ForceWrite(*root, "B", std::int32_t{-7});
    ForceWrite(*root, "C", std::uint64_t{18446744073709551615U});
    ForceWrite(*root, "D", "");
    WriteWithDefault(*root, "E", -1, -1);
    WriteWithDefault(*root, "F", 0, -1);
    WriteWithDefault(*root, "G", true, true);
    WriteWithDefault(*root, "H", false, true);
    EXPECT_EQ(toText(*root),
              "<Root version=\"1\">\n  <value key=\"A\">65535</value>\n"
              "  <value key=\"B\">-7</value>\n  <value key=\"C\">18446744073709551615</value>\n"
              "  <value key=\"D\" />\n  <value key=\"F\">0</value>\n"
              "  <value key=\"H\">False</value>\n</Root>\n");
}

TEST_F(NodeValues, NumbersAreReadAsFarAsTheirDigitsGo) {
    EXPECT_EQ(read<std::int32_t>("12abc"), 12);
    EXPECT_EQ(read<std::int64_t>(" \t-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(read<std::uint64_t>("+18446744073709551615"), UINT64_MAX);
    EXPECT_EQ(read<std::uint32_t>("4294967298"), 2U) << "the low 32 bits";
    EXPECT_EQ(read<std::int32_t>("-4294967299"), -3) << "the low 32 bits";
    EXPECT_EQ(read<std::string>("-4x"), "-4x");
    const auto codeOf = [&](const char* text) {
        try {
            read<std::int64_t>(text);
        } catch (const XmlException& error) {
            return error.GetCode();
        }
        return -1;
    };
    EXPECT_EQ(std::pair(codeOf("abc"), codeOf("9223372036854775808")), std::pair(0, 4));
}

TEST_F(NodeValues, MissingKeyGivesTheDefault) {
    EXPECT_EQ(ReadWithDefault(*root, "A", std::uint32_t{4294967295}), 4294967295U);
    EXPECT_EQ(ReadWithDefault(*root, "A", std::int32_t{-7}), -7);
    EXPECT_EQ(ReadWithDefault(*root, "A", std::uint64_t{UINT64_MAX}), UINT64_MAX);
    EXPECT_EQ(ReadWithDefault(*root, "A", "text"), "text");
    EXPECT_TRUE(ReadWithDefault(*root, "A", true) && !ReadWithDefault(*root, "A", false));
    EXPECT_EQ(ReadValueAs<std::int32_t>(*root, "A") + ReadValueAs<std::int64_t>(*root, "A"), 0);
    EXPECT_EQ(ReadValueAs<std::uint32_t>(*root, "A") + ReadValueAs<std::uint64_t>(*root, "A"), 0U);
    EXPECT_EQ(ReadValueAs<std::string>(*root, "A"), "");
}

TEST_F(NodeValues, BooleansTakeWordsAndNumbersAndNeverThrow) {
    for (const auto* text :
         {"True", "TRUE", "tRuE", "1", "2.5", "-2", " 1", "+1", "1.0e0", "inf"}) {
        EXPECT_TRUE(TextToBool(text)) << text;
    }
    for (const auto* text : {"False", "", "0", "yes", "1x", "1,5", "1 ", "+", "+-1", "true ", "nan",
                             "2.220446049250313e-16", "1e-999"}) {
        EXPECT_FALSE(TextToBool(text)) << text;
    }
}

TEST(XmlExceptionTest, TextFollowsFromTheCode) {
    std::string texts;
    for (std::int32_t code = -1; code <= 14; ++code) {
        texts += XmlException(code).what() + std::string("|");
    }
    EXPECT_EQ(texts,
              "XmlExceptionCode is not set!|Node does not contain expected type!|"
              "Node you want to read does not exist!|"
              "KCOM index size is limited to values of long type!|"
              "Values you can write to KCOM node are limited to values of long type!|"
              "Value is out of range!|Inner node is not initialized!|KCOM document is not set!|"
              "Node in function argument is nullptr!|Document in function argument is nullptr!|"
              "File name is not set!|Failure when opening a file!|"
              "Failure when reading a buffer from a file!|Failure when parsing Xml file!|"
              "Parameter is a dummy node!|XmlExceptionCode is not set!|");
}

}  // namespace
