#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <stdexcept>
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

TEST(KvrtExceptionTest, EachCodeComesOutAsItsClass) {
    struct Row {
        std::uint32_t code;
        const std::type_info& type;
        const char* text;
    };
    const std::array rows = {
        Row{0x80000000U, typeid(NoMemoryException), "No memory"},
        Row{0x80000001U, typeid(InvalidParameterException), "Invalid parameter"},
        Row{0x80000004U, typeid(ConversionFailedException), "Conversion failed"},
        Row{0x80000005U, typeid(OutOfRangeException), "Out of range"},
        Row{0x80000006U, typeid(NotFoundException), "Not found"},
        Row{0x8000000AU, typeid(AlreadyExistsException), "Already exists"},
        Row{0x8000000BU, typeid(NotAssignedException), "Not assigned"},
        Row{0x8000000DU, typeid(ParseFailedException), "Parse failed"},
        Row{0x8000000EU, typeid(InvalidValueException), "Invalid value"},
        Row{0x80000011U, typeid(InvalidTypeException), "Invalid type"},
        Row{0x80000013U, typeid(NotEnabledException), "Not enabled"},
        Row{0x80000014U, typeid(GeneralErrorException), "General error"},
        Row{0x80000016U, typeid(NotImplementedException), "Not Implemented"},
        Row{0x80000017U, typeid(FrozenException), "Object frozen"},
        Row{0x80000018U, typeid(NotSerializableException), "Not serializable"},
        Row{0x80000021U, typeid(DeserializeException), "Error when parsing or deserializing"},
        Row{0x80000024U, typeid(InvalidPropertyException), "Invalid property"},
        Row{0x80000026U, typeid(ArgumentNullException), "Argument must not be NULL."},
        Row{0x80000027U, typeid(InvalidOperationException),
            "Operation in not valid for the current type or state."},
        Row{0x80000028U, typeid(UninitializedException), "The operation requires initialization"},
        Row{0x80000029U, typeid(InvalidStateException), "Invalid state"},
        Row{0x80000030U, typeid(ValidateFailedException), "Validate failed"},
        Row{0x80004002U, typeid(NoInterfaceException),
            "Invalid cast. The object does not implement this interface."},
    };
    static_assert(rows.size() == 23);
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

TEST(KvrtExceptionTest, UnknownCodeIsKept) {
    for (const std::string message : {"", "why"}) {
        const Raised error = raised(0x8ABC0001U, message);
        EXPECT_EQ(*error.type, typeid(KvrtException));
        EXPECT_EQ(error.code, 0x8ABC0001U);
        EXPECT_EQ(error.what, message);
        EXPECT_FALSE(error.defaultMessage) << "an empty text is the text here";
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

class ExceptionRegistryTest : public ::testing::Test {
  protected:
    static constexpr std::uint32_t code = 0x80000005U;
    static constexpr int fallback = -1;

    void add(int number) {
        registry.add(code, OwnedExceptionFactory(new CountedFactory(number, living)));
    }
    int found() {
        try {
            registry.find(code).raise(code, "");
        } catch (int number) {
            return number;
        } catch (const KvrtException& error) {
            EXPECT_EQ(error.getCode(), code);
        }
        return fallback;
    }

    int living = 0;
    ExceptionRegistry registry;
};

TEST_F(ExceptionRegistryTest, LaterFactoryReplacesTheEarlierOne) {
    EXPECT_EQ(found(), fallback);
    add(1);
    add(2);
    EXPECT_EQ(found(), 2);
    EXPECT_EQ(living, 1) << "the replaced factory is left";
    registry.remove(code);
    registry.remove(code);
    EXPECT_EQ(found(), fallback);
    EXPECT_EQ(living, 0);
}

TEST_F(ExceptionRegistryTest, NothingHappensAfterTheClose) {
    add(1);
    registry.close();
    EXPECT_EQ(living, 0);
    registry.remove(code);
    add(2);
    EXPECT_EQ(living, 0) << "a factory stays behind the exit";
    EXPECT_EQ(found(), fallback);
    registry.close();
}

TEST(RaiseFromCodeTest, FactoryThatReturnsIsToldAsSuch) {
    class Silent : public IExceptionFactory {
        void destroy() override { delete this; }
        void raise(std::uint32_t, const std::string&) override {}
    };
    constexpr std::uint32_t code = 0x8ABC0002U;
    ExceptionRegistry::instance().add(code, OwnedExceptionFactory(new Silent));
    try {
        raiseFromCode(code, "no luck");
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "no luck (2327576578)");
    }
    ExceptionRegistry::instance().remove(code);
    EXPECT_EQ(raised(code, "").code, code);
}

}  // namespace
}  // namespace Kestrova::RT::Core
