#include "core/kvrt_exception.h"
#include "host/runtime_error.h"
#include "station/runtime/runtime_exports.h"

namespace {

using Kestrova::RT::Core::checkErrorInfo;
using Kestrova::RT::Core::OutOfRangeException;

constexpr HostResult outOfRange = hostResult(OutOfRangeException::classCode);

class RuntimeLibraryTest : public ::testing::Test {
  protected:
    ~RuntimeLibraryTest() override { library.kvRtClearErrorInfo(); }

    void putError(const char* message) {
        CountedRef<RuntimeString> string;
        CountedRef<RuntimeErrorInfo> info;
        ASSERT_EQ(library.createString(message, string.out()), HostCode::success);
        ASSERT_EQ(library.createErrorInfo(info.out()), HostCode::success);
        ASSERT_EQ(info->setMessage(string.get()), HostCode::success);
        ASSERT_EQ(library.kvRtSetErrorInfo(info.get()), HostCode::success);
    }
    std::string raised() {
        try {
            checkErrorInfo(library, outOfRange);
        } catch (const OutOfRangeException& error) {
            return error.what();
        }
        return "nothing";
    }

    RuntimeLibrary& library = *kvRtGetLibrary();
};

TEST_F(RuntimeLibraryTest, EachThreadRaisesItsOwnErrorOnceWithItsText) {
    putError("no row 7");
    std::string elsewhere;
    std::thread([&] {
        elsewhere = raised();
        putError("its own");
    }).join();
    EXPECT_EQ(elsewhere, "Out of range");
    EXPECT_EQ(raised(), "no row 7");
    EXPECT_EQ(raised(), "Out of range");
}

}  // namespace
