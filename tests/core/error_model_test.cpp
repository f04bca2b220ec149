#include <gtest/gtest.h>

#include <array>
#include <string>
#include <typeinfo>

#include "core/exception_registry.h"
#include "core/kvrt_exception.h"

namespace Kestrova::RT::Core {
namespace {

/// What `raiseFromCode` throws, seen through the common base.
struct Raised {
    std::string what;
    std::uint32_t code;
    bool defaultMessage;
    const std::type_info* type;
};

Raised raised(std::uint32_t code, const std::string& message) {
    try {
        raiseFromCode(code, message);
    } catch (const KvrtException& error) {
        return {error.what(), error.getCode(), error.hasDefaultMessage(), &typeid(error)};
    }
}

std::string textOf(const std::string& text) {
    return KvrtException(0x80000001U, false, text).what();
}

TEST(KvrtExceptionTest, CodeComesOutAsItsClass) {
    struct Row {
        std::uint32_t code;
        const std::type_info& type;
        const char* text;
    };
    const std::array rows = {
        Row{0x80000000U, typeid(NoMemoryException), "No memory"},
        Row{0x80000027U, typeid(InvalidOperationException),
            "Operation in not valid for the current type or state."},
        Row{0x80004002U, typeid(NoInterfaceException),
            "Invalid cast. The object does not implement this interface."},
    };
    for (const Row& row : rows) {
        const Raised plain = raised(row.code, "");
        EXPECT_EQ(*plain.type, row.type) << row.text;
        EXPECT_EQ(plain.what, row.text);
        EXPECT_EQ(plain.code, row.code) << row.text;
        EXPECT_TRUE(plain.defaultMessage) << row.text;
        const Raised told = raised(row.code, "the text");
        EXPECT_EQ(*told.type, row.type) << row.text;
        EXPECT_EQ(told.what, "the text");
        EXPECT_FALSE(told.defaultMessage) << row.text;
    }
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
