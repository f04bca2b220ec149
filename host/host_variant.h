#pragma once

#include <cstdint>

#include "host/host_object.h"

class HostByteArray;
class HostVariantArray;

/// What the payload of a `HostVariant` is.
enum class HostVariantType : std::uint16_t {
    Empty = 0,
    Float = 4,              ///< `float32`
    Double = 5,             ///< `float64`
    Text = 8,               ///< `text`
    Boolean = 11,           ///< `boolean`
    Object = 13,            ///< `object`, null allowed
    UnsignedInt = 19,       ///< `uint32`
    VariantArray = 0x200C,  ///< `variants`
    ByteArray = 0x2011,     ///< `bytes`
};

/// A value whose type is known only when it is used: the arguments and results of numbered events
/// and the samples whose size varies.
///
/// A plain record that owns nothing. Texts, arrays and objects in an argument are the caller's and
/// are there for the length of the call. In a result they are handed over with a reference; this
/// system's results are numbers and booleans only. Some events write a result's payload and leave
/// its type as the host had set it, so the members of the payload all start at the same place.
struct HostVariant {
    HostVariantType type = HostVariantType::Empty;
    union {
        std::uint64_t bits = 0;  ///< covers all the others
        HostBool boolean;        ///< also what an event calls a 16-bit payload
        std::uint32_t uint32;    ///< also what an event calls a 32-bit payload
        float float32;
        double float64;
        const wchar_t* text;
        HostObject* object;
        HostVariantArray* variants;
        HostByteArray* bytes;
    };
};

/// A one-dimensional array of variants, as events 157 to 159 get it.
class HostVariantArray : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x859C3F0F, 0xDD50, 0x497D, {0xA7, 0xBB, 0xDC, 0x6C, 0x78, 0x71, 0x45, 0x5A}};

    /// The first and the last index; the last is below the first in an empty array.
    virtual HostResult getBounds(std::int32_t* first, std::int32_t* last) = 0;
    /// What the element refers to stays the array's: it lives as long as the array does.
    /// `HostCode::invalidArgument` for an index outside the bounds.
    virtual HostResult getElement(std::int32_t index, HostVariant* element) = 0;
    /// A new array with the same bounds and elements, which holds references of its own.
    virtual HostResult copy(HostVariantArray** result) = 0;

  protected:
    ~HostVariantArray() = default;
};

/// A run of bytes: one sample of a channel whose samples vary in size.
class HostByteArray : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x7C9EC181, 0x3B12, 0x4AFC, {0x92, 0x8F, 0x44, 0xC4, 0x8A, 0x5C, 0xB8, 0x75}};

    /// The bytes live as long as the array and don't change. `data` may be null if there are none.
    virtual HostResult getBytes(const std::uint8_t** data, std::uint64_t* size) = 0;

  protected:
    ~HostByteArray() = default;
};
