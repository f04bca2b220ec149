#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace Kestrova::RT::Core {

/// A failure that has one of the runtime library's codes: what its callers throw and catch inside
/// the system. `ExceptionRegistry` finds the class of a code.
class KvrtException : public std::exception {
  public:
    /// `text` is UTF-8 and taken as a pattern for itself: each "%s" in it becomes the whole of
    /// `text`, each "%%" one percent sign, and any other "%" stays. The result is cut at
    /// `messageLimit` bytes, in the middle of a character if need be.
    KvrtException(std::uint32_t failureCode, bool isDefaultMessage, std::string_view text);

    static constexpr std::size_t messageLimit = 1023;

    /// Negative as a 32-bit signed number.
    std::uint32_t getCode() const { return code; }
    const char* what() const noexcept override { return message.c_str(); }
    /// Whether the text is the class's own and not given by whoever threw.
    bool hasDefaultMessage() const { return usesDefaultMessage; }

  private:
    std::uint32_t code;
    std::string message;
    bool usesDefaultMessage;
};

/// A class of exceptions for each code that has a meaning of its own, in the order in which they
/// are registered: class, code, default text.
#define KVRT_EXCEPTIONS(ENTRY)                                                          \
    ENTRY(NoMemoryException, 0x80000000U, "No memory")                                  \
    ENTRY(InvalidParameterException, 0x80000001U, "Invalid parameter")                  \
    ENTRY(ArgumentNullException, 0x80000026U, "Argument must not be NULL.")             \
    ENTRY(NoInterfaceException, 0x80004002U,                                            \
          "Invalid cast. The object does not implement this interface.")                \
    ENTRY(NotAssignedException, 0x8000000BU, "Not assigned")                            \
    ENTRY(NotEnabledException, 0x80000013U, "Not enabled")                              \
    ENTRY(OutOfRangeException, 0x80000005U, "Out of range")                             \
    ENTRY(NotFoundException, 0x80000006U, "Not found")                                  \
    ENTRY(GeneralErrorException, 0x80000014U, "General error")                          \
    ENTRY(InvalidTypeException, 0x80000011U, "Invalid type")                            \
    ENTRY(AlreadyExistsException, 0x8000000AU, "Already exists")                        \
    ENTRY(FrozenException, 0x80000017U, "Object frozen")                                \
    ENTRY(ParseFailedException, 0x8000000DU, "Parse failed")                            \
    ENTRY(NotImplementedException, 0x80000016U, "Not Implemented")                      \
    ENTRY(NotSerializableException, 0x80000018U, "Not serializable")                    \
    ENTRY(DeserializeException, 0x80000021U, "Error when parsing or deserializing")     \
    ENTRY(ConversionFailedException, 0x80000004U, "Conversion failed")                  \
    ENTRY(InvalidPropertyException, 0x80000024U, "Invalid property")                    \
    ENTRY(InvalidValueException, 0x8000000EU, "Invalid value")                          \
    ENTRY(InvalidStateException, 0x80000029U, "Invalid state")                          \
    ENTRY(ValidateFailedException, 0x80000030U, "Validate failed")                      \
    ENTRY(UninitializedException, 0x80000028U, "The operation requires initialization") \
    ENTRY(InvalidOperationException, 0x80000027U,                                       \
          "Operation in not valid for the current type or state.")

/// Each class has its code as `classCode`; made without a text, or with an empty one, it has the
/// default text.
// NOLINTBEGIN(bugprone-macro-parentheses): they can't stand around the name of a class
#define KVRT_DECLARE_EXCEPTION(Class, failureCode, defaultText)                            \
    class Class : public KvrtException {                                                   \
      public:                                                                              \
        static constexpr std::uint32_t classCode = failureCode;                            \
        Class() : Class(std::string_view()) {}                                             \
        explicit Class(std::string_view text)                                              \
            : KvrtException(classCode, text.empty(), text.empty() ? defaultText : text) {} \
    };
KVRT_EXCEPTIONS(KVRT_DECLARE_EXCEPTION)
#undef KVRT_DECLARE_EXCEPTION
// NOLINTEND(bugprone-macro-parentheses)

/// Puts all classes above into the registry while it lives. Every unit that sees the classes has
/// one, so that they are registered before any code of that unit runs and as long as it can throw,
/// wherever a linker puts the unit; that later units register the same pairs again does no harm.
class ExceptionRegistration {
  public:
    ExceptionRegistration();
    ~ExceptionRegistration();
    ExceptionRegistration(const ExceptionRegistration&) = delete;
    ExceptionRegistration& operator=(const ExceptionRegistration&) = delete;
};

static const ExceptionRegistration exceptionRegistration;

}  // namespace Kestrova::RT::Core
