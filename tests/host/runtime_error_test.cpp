#include "host/runtime_error.h"

#include <gmock/gmock.h>

#include "tests/support/scripted_runtime.h"

namespace Kestrova::RT::Core {
namespace {

using ::testing::IsEmpty;

class CheckErrorInfoTest : public ::testing::Test {
  protected:
    static constexpr HostResult outOfRange = hostResult(0x80000005U);

    ~CheckErrorInfoTest() override { EXPECT_THAT(script.referenceFaults(), IsEmpty()); }

    std::string textOfFailure() {
        try {
            checkErrorInfo(runtime, outOfRange);
        } catch (const OutOfRangeException& error) {
            return error.what();
        }
        return "nothing thrown";
    }

    CallScript script;
    ScriptedRuntime runtime{script};
};

TEST_F(CheckErrorInfoTest, GoodResultAsksForNothing) {
    runtime.putError("left over");
    checkErrorInfo(runtime, 0);
    checkErrorInfo(runtime, 5);
    EXPECT_THAT(script.operations(), IsEmpty());
    EXPECT_NE(runtime.current, nullptr);
}

TEST_F(CheckErrorInfoTest, TextOfTheLibraryIsTakenOnce) {
    runtime.putError("row 7 of 5");
    EXPECT_EQ(textOfFailure(), "row 7 of 5");
    EXPECT_EQ(runtime.current, nullptr) << "the next failure would get this text";
    script.forget();
    EXPECT_EQ(textOfFailure(), "Out of range");
    EXPECT_THAT(script.operations(), ::testing::ElementsAre("RuntimeLibrary::kvRtGetErrorInfo"));
}

TEST_F(CheckErrorInfoTest, ErrorObjectThatFailsOrIsEmptyGivesTheDefaultText) {
    for (const char* operation : {"RuntimeErrorInfo::getMessage", "RuntimeString::getText"}) {
        runtime.putError("lost");
        script.failOperation(operation, HostCode::failed);
        EXPECT_EQ(textOfFailure(), "Out of range");
        EXPECT_EQ(runtime.current, nullptr) << operation;
        script.heal();
    }
    runtime.putError("lost");
    script.nullOperation("RuntimeErrorInfo::getMessage");
    EXPECT_EQ(textOfFailure(), "Out of range");
    EXPECT_EQ(runtime.current, nullptr);
}

}  // namespace
}  // namespace Kestrova::RT::Core
