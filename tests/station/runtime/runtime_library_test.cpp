#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

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

    CountedRef<RuntimeString> makeString(const char* text) {
        CountedRef<RuntimeString> string;
        EXPECT_EQ(library.createString(text, string.out()), HostCode::success);
        return string;
    }
    void putError(const char* message) {
        CountedRef<RuntimeErrorInfo> info;
        ASSERT_EQ(library.createErrorInfo(info.out()), HostCode::success);
        ASSERT_EQ(info->setMessage(makeString(message).get()), HostCode::success);
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
    static std::string textOf(RuntimeString& string) {
        const char* text = nullptr;
        EXPECT_EQ(string.getText(&text), HostCode::success);
        return text;
    }

    RuntimeLibrary& library = *kvRtGetLibrary();
};

TEST_F(RuntimeLibraryTest, AStringIsACopyAndNullIsEmpty) {
    std::string source = "Gr\xC3\xBC\xC3\x9F";
    const auto string = makeString(source.c_str());
    source.clear();
    EXPECT_EQ(textOf(*string), "Gr\xC3\xBC\xC3\x9F");
    EXPECT_EQ(textOf(*makeString(nullptr)), "");
}

TEST_F(RuntimeLibraryTest, AnErrorIsRaisedOnceWithItsText) {
    putError("no row 7");
    EXPECT_EQ(raised(), "no row 7");
    EXPECT_EQ(raised(), "Out of range");
}

TEST_F(RuntimeLibraryTest, EachThreadHasAnErrorOfItsOwn) {
    putError("mine");
    std::string elsewhere;
    std::thread([&] {
        elsewhere = raised();
        putError("its own");
    }).join();
    EXPECT_EQ(elsewhere, "Out of range");
    EXPECT_EQ(raised(), "mine");
}

TEST_F(RuntimeLibraryTest, TheListOfLiveObjectsCountsEachEntry) {
    const int object = 0;
    const std::size_t before = kvRtTrackedCount();
    library.kvRtTrackObject(&object);
    library.kvRtTrackObject(&object);
    EXPECT_EQ(kvRtTrackedCount(), before + 2);
    library.kvRtUntrackObject(&object);
    library.kvRtUntrackObject(&object);
    library.kvRtUntrackObject(&object);
    EXPECT_EQ(kvRtTrackedCount(), before);
}

TEST_F(RuntimeLibraryTest, ADuplicateIsTheCallersToFree) {
    const std::unique_ptr<char, decltype(&std::free)> text(library.kvRtDuplicateCharPtr("abc"),
                                                           &std::free);
    EXPECT_STREQ(text.get(), "abc");
    const std::unique_ptr<char, decltype(&std::free)> empty(library.kvRtDuplicateCharPtr(nullptr),
                                                            &std::free);
    EXPECT_STREQ(empty.get(), "");
}

}  // namespace
