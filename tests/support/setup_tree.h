#pragma once

#include "core/string_helper.h"
#include "setup/kestrova_kcom_node.h"
#include "station/document/setup_xml.h"

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

/// What is in the tree, in the form of a setup file without its first line.
inline std::string toText(const Kestrova::Utils::Serialization::Node& node) {
    const auto& own = dynamic_cast<const Kestrova::Utils::Kcom::KestrovaKCOMNode&>(node);
    const std::string text =
        station::toSetupXml(dynamic_cast<const station::SetupElement&>(*own.GetElement()));
    return text.substr(text.find('\n') + 1);
}
