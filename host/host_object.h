#pragma once

#include <array>
#include <cstdint>

/// The common ground of everything that the host and the plug-in say to each other. What holds for
/// all interfaces of this folder, unless an operation says otherwise:
///
/// - An operation returns a `HostResult` and gives its values through pointers, which must not be
///   null. A failed operation leaves them as they were.
/// - A text that goes in is a `const wchar_t*`, read during the call only, in which null means
///   an empty text. A text that comes out is put into a `std::wstring`. A wide character is one
///   code point.
/// - An array that goes in is a pointer and a count, read during the call only; an array that comes
///   out is put into a `std::vector`.
/// - An object that goes in is the caller's; who wants to keep it adds a reference. An object that
///   comes out through a `T**` is handed over with a reference that the caller gives back. Null
///   with success means that there is none.
/// - The host calls the plug-in, and the plug-in the host, on the host's one thread.
///
/// Nothing here throws; an exception of the plug-in's own operations is the one thing that travels
/// to the host as it is (`IPlugin2`).

/// The outcome of an operation: negative for a failure, 0 for success.
using HostResult = std::int32_t;

/// The 16-bit boolean. Only `hostTrue` is true and only `hostFalse` is safe to write for false.
using HostBool = std::uint16_t;
inline constexpr HostBool hostTrue = 65535;
inline constexpr HostBool hostFalse = 0;
constexpr HostBool toHostBool(bool value) {
    return value ? hostTrue : hostFalse;
}
constexpr bool isTrue(HostBool value) {
    return value == hostTrue;
}

/// A failure code as it is usually written, in hexadecimal.
constexpr HostResult hostResult(std::uint32_t code) {
    return static_cast<HostResult>(code);
}

/// The results that this system gives or looks for; hosts have more.
namespace HostCode {
inline constexpr HostResult success = 0;
inline constexpr HostResult notHandled = 1;  ///< `IPlugin4::onEvent`: not an event of this plug-in
inline constexpr HostResult notImplemented = hostResult(0x80004001U);
inline constexpr HostResult noInterface = hostResult(0x80004002U);
inline constexpr HostResult invalidPointer = hostResult(0x80004003U);
inline constexpr HostResult aborted = hostResult(0x80004004U);
inline constexpr HostResult failed = hostResult(0x80004005U);
inline constexpr HostResult noAggregation = hostResult(0x80040110U);
inline constexpr HostResult classNotAvailable = hostResult(0x80040111U);
inline constexpr HostResult outOfMemory = hostResult(0x8007000EU);
inline constexpr HostResult invalidArgument = hostResult(0x80070057U);
}  // namespace HostCode

/// Names an interface or a class for good. Written in text as
/// {data1-data2-data3-data4[0..1]-data4[2..7]}, in hexadecimal.
struct InterfaceId {
    std::uint32_t data1 = 0;
    std::uint16_t data2 = 0;
    std::uint16_t data3 = 0;
    std::array<std::uint8_t, 8> data4 = {};

    friend constexpr bool operator==(const InterfaceId&, const InterfaceId&) = default;
};

/// An object with a reference count and any number of interfaces. Each interface derives from this
/// one and has a constant `id` of its own; `CountedRef` does the counting.
///
/// The object ends with its last reference and never by `delete`.
class HostObject {
  public:
    static constexpr InterfaceId id{
        0x55E4FF92, 0x54C3, 0x469A, {0xBC, 0xED, 0xEF, 0xA0, 0xC9, 0x71, 0x7A, 0x9A}};

    HostObject() = default;
    HostObject(const HostObject&) = delete;
    HostObject& operator=(const HostObject&) = delete;

    /// Gives the object's interface of that name as a pointer to that very class, with a reference.
    /// `HostCode::noInterface`, and null in `result`, if the object doesn't have it. A query for
    /// `HostObject::id` gives the same pointer whichever interface it is asked through, so that two
    /// references can be known to be one object.
    virtual HostResult queryInterface(const InterfaceId& interfaceId, void** result) = 0;
    /// Both return the number of references left, which serves tests only. Callable from any
    /// thread.
    virtual std::uint32_t addRef() = 0;
    virtual std::uint32_t release() = 0;

  protected:
    ~HostObject() = default;
};
