#pragma once

#include <concepts>
#include <cstdint>
#include <string>

#include "setup/node.h"

/// Typed access to the keyed values of a `Node`. Integers are decimal and know no locale, booleans
/// are "True" and "False". The overloads take exactly the types named: another integer type doesn't
/// compile rather than being converted on the way.
namespace Kestrova::Utils::Serialization {

/// `bool` and nothing that converts to it: a text literal would.
template <typename T>
concept ExactlyBool = std::same_as<T, bool>;

/// Writes a value that the document may not leave out: its default is the text of the value and
/// the node's force-write suffix, so the two never match.
void ForceWrite(Node& node, const std::string& key, std::uint16_t value);
void ForceWrite(Node& node, const std::string& key, std::int32_t value);
void ForceWrite(Node& node, const std::string& key, std::uint64_t value);
void ForceWrite(Node& node, const std::string& key, const std::string& value);
template <ExactlyBool Bool>
void ForceWrite(Node& node, const std::string& key, Bool value) = delete;

/// Writes a value that the document may leave out where it equals the default.
void WriteWithDefault(Node& node, const std::string& key, std::int32_t value,
                      std::int32_t defaultValue);
void WriteBoolWithDefault(Node& node, const std::string& key, bool value, bool defaultValue);
template <ExactlyBool Bool>
void WriteWithDefault(Node& node, const std::string& key, Bool value, Bool defaultValue) {
    WriteBoolWithDefault(node, key, value, defaultValue);
}

/// Reads a value; a key that isn't there gives the default.
///
/// A number is read as far as its digits go, so that `12abc` is 12. No digits at all is the
/// `XmlException` `UnexpectedType`, a number beyond 64 bits `OutOfRange`; of a number beyond 32
/// bits the 32-bit forms keep the low 32. Text that is no boolean is false, without an exception.
std::uint32_t ReadWithDefault(const Node& node, const std::string& key, std::uint32_t defaultValue);
std::int32_t ReadWithDefault(const Node& node, const std::string& key, std::int32_t defaultValue);
std::uint64_t ReadWithDefault(const Node& node, const std::string& key, std::uint64_t defaultValue);
std::string ReadWithDefault(const Node& node, const std::string& key,
                            const std::string& defaultValue);
bool ReadBoolWithDefault(const Node& node, const std::string& key, bool defaultValue);
template <ExactlyBool Bool>
bool ReadWithDefault(const Node& node, const std::string& key, Bool defaultValue) {
    return ReadBoolWithDefault(node, key, defaultValue);
}

/// As above with zero or the empty text for the default. For the five types below.
template <typename T>
T ReadValueAs(const Node& node, const std::string& key) = delete;
template <>
std::int32_t ReadValueAs(const Node& node, const std::string& key);
template <>
std::uint32_t ReadValueAs(const Node& node, const std::string& key);
template <>
std::int64_t ReadValueAs(const Node& node, const std::string& key);
template <>
std::uint64_t ReadValueAs(const Node& node, const std::string& key);
template <>
std::string ReadValueAs(const Node& node, const std::string& key);

/// "True" or "False".
std::string BoolToText(bool value);

/// `true` and `false` in any case of letters. Other text is true if all of it is one number that
/// is further from 0.0 than 2.220446049250313e-16, so `1` and `2.5` are true; `0`, `yes`, `1x` and
/// the empty text are false. White space and a sign may stand before the number; its decimal point
/// is a point in every locale.
bool TextToBool(const std::string& text);

}  // namespace Kestrova::Utils::Serialization
