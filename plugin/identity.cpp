#include "plugin/identity.h"

#include <cwchar>

namespace PluginIdentity {

std::wstring classIdText() {
    wchar_t text[39];
    const auto& last = classId.data4;
    std::swprintf(text, std::size(text), L"{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  classId.data1, classId.data2, classId.data3, last[0], last[1], last[2], last[3],
                  last[4], last[5], last[6], last[7]);
    return text;
}

RegistryStore::Values values() {
    constexpr bool supportsAnalyse = false;  // nothing sets it
    return {{L"Name", name},
            {L"GroupName", L"Automotive bus"},
            {L"Vendor", L"Kestrova"},
            {L"Version", L"0.0.1"},
            {L"Description", L"CMP support for Technica"},
            {L"GUID", classIdText()},
            {L"Icon", L"Icon"},
            {L"KestrovaIcon", L"automotive_bus"},
            {L"SupportsAnalyse", std::uint32_t{supportsAnalyse ? 1U : 0U}},
            {L"Type", std::uint32_t{1}}};
}

}  // namespace PluginIdentity
