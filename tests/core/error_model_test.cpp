#include <gtest/gtest.h>

#include <string>

#include "core/exception_registry.h"
#include "core/kvrt_exception.h"

namespace Kestrova::RT::Core {
namespace {

std::string textOf(const std::string& text) {
    return KvrtException(0x80000001U, false, text).what();
}

TEST(KvrtExceptionTest, TextIsNeverAFormatForAnythingButItself) {
    EXPECT_EQ(textOf("a%sb"), "aa%sbb");
    EXPECT_EQ(textOf("%s"), "%s");
    EXPECT_EQ(textOf("50%% of %%s"), "50% of %s");
    EXPECT_EQ(textOf("%d %5s %n %lc 100%"), "%d %5s %n %lc 100%");
    EXPECT_EQ(textOf("%"), "%");
}

TEST(KvrtExceptionTest, LongTextIsCut) {
    EXPECT_EQ(textOf(std::string(1023, 'x')), std::string(1023, 'x'));
    EXPECT_EQ(textOf(std::string(1024, 'x')), std::string(1023, 'x'));
    EXPECT_EQ(textOf(std::string(1022, 'x') + "%%y"), std::string(1022, 'x') + '%');
    EXPECT_EQ(textOf("%s" + std::string(2000, 'x')), "%s" + std::string(1021, 'x'));
    EXPECT_EQ(textOf(std::string(1022, 'x') + "\xC3\xBC"), std::string(1022, 'x') + '\xC3');
}

/// Says who it is by what it throws, and counts down as it is destroyed.
class CountedFactory : public IExceptionFactory {
  public:
    CountedFactory(int number, int& livingFactories) : id(number), living(livingFactories) {
        ++living;
    }
    ~CountedFactory() override { --living; }
    void destroy() override { delete this; }
    void raise(std::uint32_t, const std::string&) override { throw id; }

  private:
    int id;
    int& living;
};

TEST(ExceptionRegistryTest, LaterFactoryReplacesTheEarlierOne) {
    constexpr std::uint32_t code = 0x80000005U;
    int living = 0;
    ExceptionRegistry registry;
    for (const int number : {1, 2}) {
        registry.add(code, OwnedExceptionFactory(new CountedFactory(number, living)));
        EXPECT_EQ(living, 1) << "the replaced factory is left";
    }
    EXPECT_THROW(registry.find(code).raise(code, ""), int);
    registry.remove(code);
    registry.remove(code);
    EXPECT_THROW(registry.find(code).raise(code, ""), KvrtException);
    EXPECT_EQ(living, 0);
}

}  // namespace
}  // namespace Kestrova::RT::Core
