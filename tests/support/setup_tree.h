#pragma once

#include "core/string_helper.h"
#include "setup/kestrova_kcom_node.h"
#include "station/document/setup_document.h"

/// The root of a new setup tree in memory, for code that saves and loads.
inline std::shared_ptr<Kestrova::Utils::Serialization::Node> makeSetupTree(
    const std::string& rootName) {
    using Kestrova::Utils::Kcom::StringHelper;
    const auto document = makeObject<station::SetupDocument>(true);
    const auto root = makeObject<station::SetupElement>(StringHelper::ToWide(rootName), L"");
    document->SetRootElement(root.get());
    return std::make_shared<Kestrova::Utils::Kcom::KestrovaKCOMNodeCreator>(
        CountedRef<HostDocument>(document.get()), CountedRef<HostElement>(root.get()));
}

inline std::string toText(const station::SetupElement& element, const std::string& indent,
                          const char* prefix) {
    const auto utf8 = [](const std::wstring& wide) {
        return Kestrova::Utils::Kcom::StringHelper::ToUtf8(wide);
    };
    const auto& content = element.getContent();
    std::string text = indent + prefix + utf8(content.name);
    text += content.text.empty() ? "\n" : " \"" + utf8(content.text) + "\"\n";
    for (const auto& attribute : content.attributes) {
        text += toText(*attribute, indent + "  ", "@");
    }
    for (const auto& value : content.values) {
        text += indent + "  " + utf8(value.key) + " = " + utf8(value.text) + '\n';
    }
    for (const auto& child : content.children) {
        text += toText(*child, indent + "  ", "");
    }
    return text;
}

/// A setup tree to be compared with a text, a line for each element:
///
///     CmpDevices
///       CmpDevice "text, where there is one"
///         @Id "0"
///         ClockId = 3
///         Channels
///
/// In an element come first its attributes, then its values, then its children.
inline std::string toText(const Kestrova::Utils::Serialization::Node& node) {
    const auto& own = dynamic_cast<const Kestrova::Utils::Kcom::KestrovaKCOMNode&>(node);
    return toText(dynamic_cast<const station::SetupElement&>(*own.GetElement()), "", "");
}
