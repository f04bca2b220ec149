#include <fmt/format.h>

#include <charconv>
#include <cmath>

#include "core/string_helper.h"
#include "host/host_document.h"
#include "host/host_error.h"
#include "station/host/station_channel.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;

constexpr const wchar_t* elementName = L"OutputChannel";
constexpr const wchar_t* indexName = L"Index";

std::wstring wide(std::string_view text) {
    return {text.begin(), text.end()};
}

template <typename Number>
std::wstring toText(Number number) {
    return wide(fmt::format("{}", number));
}

/// The values of a channel's element. Reading raises for a text that isn't of the type.
class Values {
  public:
    Values(HostDocument* owner, HostElement* holder) : document(owner), element(holder) {}

    /// Always written: its default is another text.
    void write(const wchar_t* key, const std::wstring& value) const {
        callHost(document, &HostDocument::WriteValue, element, key, value.c_str(),
                 (value + L"#").c_str());
    }

    std::wstring read(const wchar_t* key, const std::wstring& present) const {
        std::wstring value;
        callHost(document, &HostDocument::ReadValue, element, key, &value, present.c_str());
        return value;
    }

    template <typename Number>
    Number readNumber(const wchar_t* key, Number present) const {
        const std::string text = StringHelper::ToUtf8(read(key, toText(present)));
        Number number{};
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, number);
        if (error != std::errc() || stop != end) {
            raise(key, text, "a number");
        }
        return number;
    }

    bool readFlag(const wchar_t* key, bool present) const {
        const std::string text = StringHelper::ToUtf8(read(key, present ? L"True" : L"False"));
        if (text != "True" && text != "False") {
            raise(key, text, "True or False");
        }
        return text == "True";
    }

    [[noreturn]] static void raise(const wchar_t* key, const std::string& text,
                                   const char* expected) {
        throw std::runtime_error(fmt::format("\"{}\" of a channel is \"{}\" and not {}",
                                             StringHelper::ToUtf8(key), text, expected));
    }

  private:
    HostDocument* const document;
    HostElement* const element;
};

}  // namespace

std::wstring toIndexText(const std::vector<std::int32_t>& indices) {
    std::wstring text;
    for (std::size_t i = 0; i < indices.size(); ++i) {
        text += (i == 0 ? L"" : i == 1 ? L":" : L";") + toText(indices[i]);
    }
    return text;
}

HostResult StationChannel::persistSetup(HostDocument* document, HostElement* element,
                                        HostBool saving) {
    return guarded(
        [&] { return isTrue(saving) ? save(document, element) : load(document, element); });
}

HostResult StationChannel::save(HostDocument* document, HostElement* element) const {
    while (const auto old = hostObject(element, &HostElement::FindChild, elementName)) {
        callHost(element, &HostElement::RemoveChild, old.get());
    }
    const auto made = hostObject(document, &HostDocument::CreateElement, elementName, L"");
    callHost(element, &HostElement::AddChild, made.get());
    const auto index =
        hostObject(document, &HostDocument::CreateElement, indexName, toIndexText(place).c_str());
    callHost(made, &HostElement::AddChild, index.get());
    const Values values(document, made.get());
    values.write(L"Name", channelName);
    values.write(L"Unit", unit);
    values.write(L"Color", toText(color));
    values.write(L"Used", isUsedNow ? L"True" : L"False");
    values.write(L"ExpectedRate", toText(expectedRate));
    return HostCode::success;
}

HostResult StationChannel::load(HostDocument* document, HostElement* element) {
    const auto saved = hostObject(element, &HostElement::FindChild, elementName);
    if (!saved) {
        return HostCode::success;
    }
    const Values values(document, saved.get());
    const std::wstring newName = values.read(L"Name", channelName);
    const std::wstring newUnit = values.read(L"Unit", unit);
    const auto newColor = values.readNumber(L"Color", color);
    const bool newUsed = values.readFlag(L"Used", isUsedNow);
    const auto newRate = values.readNumber(L"ExpectedRate", expectedRate);
    if (const HostResult code = setExpectedRate(newRate); code < 0) {
        return code;
    }
    channelName = newName;
    unit = newUnit;
    color = newColor;
    isUsedNow = newUsed;
    return HostCode::success;
}

}  // namespace station
