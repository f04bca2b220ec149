#include "setup/node_values.h"

#include <gtest/gtest.h>

#include "tests/setup/xml_code.h"
#include "tests/support/setup_tree.h"

namespace {

using namespace Kestrova::Utils::Serialization;

class NodeValues : public ::testing::Test {
  protected:
    /// Reads a text as somebody's editor might have left it.
    template <typename T>
    T read(const std::string& text) {
        node->WriteValue("Key", text, text + "#");
        return ReadValueAs<T>(*node, "Key");
    }

    std::shared_ptr<Node> node = makeSetupTree("Root");
};

TEST_F(NodeValues, OnlyForcedWritesSurviveADefault) {
    ForceWrite(*node, "A", std::uint16_t{65535});
    ForceWrite(*node, "B", std::int32_t{-7});
    ForceWrite(*node, "C", std::uint64_t{18446744073709551615U});
    ForceWrite(*node, "D", "");
    WriteWithDefault(*node, "E", -1, -1);
    WriteWithDefault(*node, "F", 0, -1);
    WriteWithDefault(*node, "G", true, true);
    WriteWithDefault(*node, "H", false, true);
    EXPECT_EQ(toText(*node),
              "Root\n  A = 65535\n  B = -7\n  C = 18446744073709551615\n  D = \n  F = 0\n"
              "  H = False\n");
}

TEST_F(NodeValues, NumbersAreReadAsFarAsTheirDigitsGo) {
    EXPECT_EQ(read<std::int32_t>("12abc"), 12);
    EXPECT_EQ(read<std::int64_t>(" \t-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(read<std::uint64_t>("+18446744073709551615"), UINT64_MAX);
}

TEST_F(NodeValues, BadNumbersAreErrorsWithTheirCode) {
    for (const auto* text : {"abc", "", "-", " x1"}) {
        EXPECT_EQ(codeOf([&] { read<std::int32_t>(text); }), 0) << text;
    }
    const std::string nines(23, '9');
    EXPECT_EQ(codeOf([&] { read<std::int32_t>(nines); }), 4);
    EXPECT_EQ(codeOf([&] { read<std::uint64_t>(nines); }), 4);
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

}  // namespace
