#include "setup/node_values.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <system_error>

#include "core/parse_number.h"
#include "core/string_helper.h"
#include "setup/xml_exception.h"

namespace Kestrova::Utils::Serialization {
namespace {

using Kcom::StringHelper;

std::string readText(const Node& node, const std::string& key, const std::string& defaultText) {
    std::string text;
    node.ReadValue(key, text, defaultText);
    return text;
}

/// Runs a standard conversion and turns its two errors into those of this layer.
template <typename Conversion>
auto convert(const std::string& text, Conversion conversion) {
    try {
        return conversion(text);
    } catch (const std::invalid_argument&) {
        throw XmlException(XmlException::UnexpectedType);
    } catch (const std::out_of_range&) {
        throw XmlException(XmlException::OutOfRange);
    }
}

std::int64_t toInt64(const std::string& text) {
    return convert(text, [](const std::string& digits) { return std::stoll(digits); });
}

std::uint64_t toUint64(const std::string& text) {
    return convert(text, [](const std::string& digits) { return std::stoull(digits); });
}

}  // namespace

void ForceWrite(Node& node, const std::string& key, const std::string& value) {
    node.WriteValue(key, value, value + node.GetForceWriteSuffix());
}

void ForceWrite(Node& node, const std::string& key, std::uint16_t value) {
    ForceWrite(node, key, StringHelper::ToText(std::uint32_t{value}));
}

void ForceWrite(Node& node, const std::string& key, std::int32_t value) {
    ForceWrite(node, key, StringHelper::ToText(value));
}

void ForceWrite(Node& node, const std::string& key, std::uint64_t value) {
    ForceWrite(node, key, StringHelper::ToText(value));
}

void WriteWithDefault(Node& node, const std::string& key, std::int32_t value,
                      std::int32_t defaultValue) {
    node.WriteValue(key, StringHelper::ToText(value), StringHelper::ToText(defaultValue));
}

void WriteBoolWithDefault(Node& node, const std::string& key, bool value, bool defaultValue) {
    node.WriteValue(key, BoolToText(value), BoolToText(defaultValue));
}

// The 32-bit reads keep the low half of what the 64-bit conversion gives.

std::uint32_t ReadWithDefault(const Node& node, const std::string& key,
                              std::uint32_t defaultValue) {
    const std::string text = readText(node, key, StringHelper::ToText(defaultValue));
    return static_cast<std::uint32_t>(toUint64(text));
}

std::int32_t ReadWithDefault(const Node& node, const std::string& key, std::int32_t defaultValue) {
    const std::string text = readText(node, key, StringHelper::ToText(defaultValue));
    return static_cast<std::int32_t>(toInt64(text));
}

std::uint64_t ReadWithDefault(const Node& node, const std::string& key,
                              std::uint64_t defaultValue) {
    return toUint64(readText(node, key, StringHelper::ToText(defaultValue)));
}

std::string ReadWithDefault(const Node& node, const std::string& key,
                            const std::string& defaultValue) {
    return readText(node, key, defaultValue);
}

bool ReadBoolWithDefault(const Node& node, const std::string& key, bool defaultValue) {
    return TextToBool(readText(node, key, BoolToText(defaultValue)));
}

template <>
std::int32_t ReadValueAs(const Node& node, const std::string& key) {
    return ReadWithDefault(node, key, std::int32_t{0});
}

template <>
std::uint32_t ReadValueAs(const Node& node, const std::string& key) {
    return ReadWithDefault(node, key, std::uint32_t{0});
}

template <>
std::int64_t ReadValueAs(const Node& node, const std::string& key) {
    return toInt64(readText(node, key, "0"));
}

template <>
std::uint64_t ReadValueAs(const Node& node, const std::string& key) {
    return ReadWithDefault(node, key, std::uint64_t{0});
}

template <>
std::string ReadValueAs(const Node& node, const std::string& key) {
    return readText(node, key, "");
}

std::string BoolToText(bool value) {
    return value ? "True" : "False";
}

bool TextToBool(const std::string& text) {
    std::string lower = text;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    if (lower == "true") {
        return true;
    }
    std::string_view digits = lower;
    digits.remove_prefix(std::min(digits.find_first_not_of(" \t\n\v\f\r"), digits.size()));
    if (digits.starts_with('+') && !digits.starts_with("+-")) {
        digits.remove_prefix(1);
    }
    const auto number = parseNumber<double>(digits);
    return number && std::abs(*number) > std::numeric_limits<double>::epsilon();
}

}  // namespace Kestrova::Utils::Serialization
