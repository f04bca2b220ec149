#include "core/exception_registry.h"
#include "core/kvrt_exception.h"

namespace Kestrova::RT::Core {
namespace {

std::string textOf(const std::string& text) {
    return KvrtException(0x80000001U, false, text).what();
}

/// Not inlined: g++ 12 takes the copying for a fault.
[[gnu::noinline]] std::string filled(std::size_t count, const std::string& end = {}) {
    return std::string(count, 'x') + end;
}

TEST(KvrtExceptionTest, TextIsNeverAFormatForAnythingButItselfAndIsCut) {
    EXPECT_EQ(textOf("a%sb"), "aa%sbb");
    EXPECT_EQ(textOf("%s"), "%s");
    EXPECT_EQ(textOf("50%% of %%s"), "50% of %s");
    EXPECT_EQ(textOf("%d %5s %n %lc 100%"), "%d %5s %n %lc 100%");
    EXPECT_EQ(textOf("%"), "%");
    EXPECT_EQ(textOf(filled(1023)), filled(1023));
    EXPECT_EQ(textOf(filled(1024)), filled(1023));
    EXPECT_EQ(textOf(filled(1022, "%%y")), filled(1022, "%"));
    EXPECT_EQ(textOf("%s" + filled(2000)), "%s" + filled(1021));
    EXPECT_EQ(textOf(filled(1022, "\xC3\xBC")), filled(1022, "\xC3"));
}

TEST(KvrtExceptionTest, EachCodeHasAClassWithItsTextAndAnUnknownOneKeepsItsCode) {
    constexpr std::uint32_t codes[] = {0x80000000, 0x80000001, 0x80000026, 0x80004002, 0x8000000B,
                                       0x80000013, 0x80000005, 0x80000006, 0x80000014, 0x80000011,
                                       0x8000000A, 0x80000017, 0x8000000D, 0x80000016, 0x80000018,
                                       0x80000021, 0x80000004, 0x80000024, 0x8000000E, 0x80000029,
                                       0x80000030, 0x80000028, 0x80000027, 0x80000099};
    std::istringstream texts(
        "No memory|Invalid parameter|Argument must not be NULL.|"
        "Invalid cast. The object does not implement this interface.|Not assigned|Not enabled|"
        "Out of range|Not found|General error|Invalid type|Already exists|Object frozen|"
        "Parse failed|Not Implemented|Not serializable|Error when parsing or deserializing|"
        "Conversion failed|Invalid property|Invalid value|Invalid state|Validate failed|"
        "The operation requires initialization|"
        "Operation in not valid for the current type or state.|");
    for (const std::uint32_t code : codes) {
        std::string text;  // none for the last one
        std::getline(texts, text, '|');
        for (const bool hasText : {false, true}) {
            try {
                raiseFromCode(code, hasText ? "text" : "");
            } catch (const KvrtException& raised) {
                EXPECT_EQ(typeid(raised) == typeid(KvrtException), text.empty());
                EXPECT_EQ(raised.getCode(), code);
                EXPECT_EQ(raised.what(), hasText ? "text" : text);
                EXPECT_EQ(raised.hasDefaultMessage(), !hasText && !text.empty());
            }
        }
    }
}

/// Counts down as it is destroyed.
class CountedFactory : public IExceptionFactory {
  public:
    explicit CountedFactory(int& livingFactories, ExceptionRegistry* closing = nullptr)
        : living(livingFactories), asked(closing) {
        ++living;
    }
    ~CountedFactory() override { --living; }
    void destroy() override {
        asked != nullptr ? asked->remove(0) : void();
        delete this;
    }
    void raise(std::uint32_t, const std::string&) override { throw living; }

  private:
    int& living;
    ExceptionRegistry* const asked;  ///< at the end, as by the exit steps of other units
};

TEST(ExceptionRegistryTest, LaterFactoryReplacesTheEarlierOne) {
    constexpr std::uint32_t code = 0x80000005U;
    int living = 0;
    ExceptionRegistry registry;
    for (int round = 0; round < 2; ++round) {
        registry.add(code, OwnedExceptionFactory(new CountedFactory(living)));
        EXPECT_EQ(living, 1) << "the replaced factory is left";
    }
    EXPECT_THROW(registry.find(code).raise(code, ""), int);
    registry.remove(code);
    registry.remove(code);
    EXPECT_THROW(registry.find(code).raise(code, ""), KvrtException);
    EXPECT_EQ(living, 0);
    for (int round = 0; round < 2; ++round) {
        registry.add(code, OwnedExceptionFactory(new CountedFactory(living, &registry)));
        registry.close();
        EXPECT_EQ(living, 0) << "after the exit nothing is added any more";
    }
    EXPECT_THROW(registry.find(code).raise(code, ""), KvrtException);
}

}  // namespace
}  // namespace Kestrova::RT::Core
