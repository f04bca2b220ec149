#include <new>
#include <pugixml.hpp>
#include <utility>

#include "station/document/setup_text.h"
#include "station/document/setup_xml.h"

namespace station {
namespace {

/// pugixml answers with an empty handle, or false, when it is out of memory; a file must not miss
/// anything for that.
template <typename Handle>
Handle made(Handle handle) {
    if (!handle) {
        throw std::bad_alloc();
    }
    return handle;
}

void addAttribute(pugi::xml_node node, const char* name, const std::wstring& text) {
    made(made(node.append_attribute(name)).set_value(toFileText(text).c_str()));
}

void addText(pugi::xml_node node, const std::wstring& text) {
    if (!text.empty()) {
        made(made(node.append_child(pugi::node_pcdata)).set_value(toFileText(text).c_str()));
    }
}

std::string nameInFile(const SetupElement& element) {
    return toFileText(element.getContent().name);
}

bool hasOwnTag(const SetupElement& element) {
    const std::wstring& name = element.getContent().name;
    return isXmlName(name) && name != L"value" && name != L"attribute" && name != L"element";
}

/// Whether it can be an attribute of the XML element too, which has some already.
bool isPlainAttribute(pugi::xml_node node, const SetupElement& attribute) {
    const auto& content = attribute.getContent();
    return content.values.empty() && content.attributes.empty() && content.children.empty() &&
           isXmlName(content.name) && !node.attribute(nameInFile(attribute).c_str());
}

void fill(pugi::xml_node node, const SetupElement& element);

void addNamed(pugi::xml_node node, const SetupElement& element) {
    addAttribute(node, "name", element.getContent().name);
    fill(node, element);
}

void addElement(pugi::xml_node parent, const SetupElement& element, bool isRoot) {
    const bool hasTag = hasOwnTag(element);
    const auto node = made(parent.append_child(hasTag ? nameInFile(element).c_str() : "element"));
    if (isRoot) {
        addAttribute(node, "version", std::to_wstring(setupXmlVersion));
    }
    if (hasTag) {
        fill(node, element);
    } else {
        addNamed(node, element);
    }
}

void fill(pugi::xml_node node, const SetupElement& element) {
    const auto& content = element.getContent();
    auto next = content.attributes.begin();
    for (; next != content.attributes.end() && isPlainAttribute(node, **next); ++next) {
        addAttribute(node, nameInFile(**next).c_str(), (*next)->getContent().text);
    }
    addText(node, content.text);
    for (; next != content.attributes.end(); ++next) {
        addNamed(made(node.append_child("attribute")), **next);
    }
    for (const auto& value : content.values) {
        const auto entry = made(node.append_child("value"));
        addAttribute(entry, "key", value.key);
        addText(entry, value.text);
    }
    for (const auto& child : content.children) {
        addElement(node, *child, false);
    }
}

struct TextWriter final : pugi::xml_writer {
    void write(const void* data, std::size_t size) override {
        text.append(static_cast<const char*>(data), size);
    }
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
};

}  // namespace

std::string toSetupXml(const SetupElement& root) {
    pugi::xml_document file;
    addElement(file, root, true);
    TextWriter writer;
    file.save(writer, "  ", pugi::format_indent | pugi::format_no_declaration, pugi::encoding_utf8);
    return std::move(writer.text);
}

}  // namespace station
