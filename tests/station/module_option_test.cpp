#include "station/module_option.h"

#include <gtest/gtest.h>

#include "station/exit_codes.h"

namespace station {
namespace {

TEST(ModuleOption, TakesDecimalAndHexadecimalIdsAndNamesWithColons) {
    const ModuleOption plain = ModuleOption::parse("LIN combo:65535");
    EXPECT_EQ(plain.type, "LIN combo");
    EXPECT_EQ(plain.configId, 65535);
    EXPECT_EQ(plain.name, "");
    const ModuleOption named = ModuleOption::parse("CAN combo:0xfFFf:Front: left");
    EXPECT_EQ(named.configId, 65535);
    EXPECT_EQ(named.name, "Front: left");
}

TEST(ModuleOption, OtherFormsAreWrongUse) {
    for (const char* text : {"", "CAN combo", ":5", "A:", "A::B", "A:-1", "A:+1", "A:65536", "A:0x",
                             "A:0x10000", "A:5x", "A: 5", "A:99999999999999999999", "A:0x-1"}) {
        try {
            ModuleOption::parse(text);
            ADD_FAILURE() << text;
        } catch (const CommandError& error) {
            EXPECT_EQ(error.getCode(), ExitCode::WrongUse) << text;
        }
    }
}

}  // namespace
}  // namespace station
