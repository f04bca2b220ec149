#include "station/document/setup_xml.h"

#include <utf8.h>

#include <algorithm>
#include <new>
#include <pugixml.hpp>
#include <string_view>
#include <utility>

#include "core/parse_number.h"
#include "station/document/setup_text.h"

namespace station {
namespace {

void attach(HostResult result) {
    if (result < 0) {  // its other causes are ruled out while reading
        throw std::bad_alloc();
    }
}

/// Turns the text of a file into elements. Knows where each thing is in the text.
class Reader {
  public:
    explicit Reader(const std::string& fileText) : text(fileText) {}

    CountedRef<SetupElement> read() {
        requireSize();
        requireCharacters();
        parse();
        const pugi::xml_node root = findRoot();
        version = requireVersion(root);
        return readElement(root, std::string_view(root.name()) == "element", 1);
    }

  private:
    [[noreturn]] void failAt(std::size_t offset, const std::string& cause,
                             const std::string& advice = {}) const {
        const std::string_view before =
            std::string_view(text).substr(0, std::min(offset, text.size()));
        const auto line = std::count(before.begin(), before.end(), '\n');
        const std::string_view start = before.substr(before.rfind('\n') + 1);
        const auto column = std::count_if(start.begin(), start.end(), [](char byte) {
            return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;  // begins a character
        });
        throw SetupXmlError(static_cast<std::size_t>(line) + 1,
                            static_cast<std::size_t>(column) + 1, cause, advice);
    }

    [[noreturn]] void fail(pugi::xml_node node, const std::string& cause,
                           const std::string& advice = {}) const {
        failAt(static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0)), cause,
               advice);
    }

    void requireSize() const {
        if (text.size() > largestSetupFile) {
            failAt(largestSetupFile, "the file has more than " + std::to_string(largestSetupFile) +
                                         " bytes, which no setup has");
        }
    }

    /// pugixml takes what comes; here is where a file of another kind is refused.
    void requireCharacters() const {
        const auto broken = utf8::find_invalid(text.begin(), text.end());
        if (broken != text.end()) {
            failAt(static_cast<std::size_t>(broken - text.begin()), "this is not UTF-8 text");
        }
        const auto control = std::find_if(text.begin(), text.end(), [](char byte) {
            const auto code = static_cast<unsigned char>(byte);
            return code < 0x20 && byte != '\t' && byte != '\n' && byte != '\r';
        });
        if (control != text.end()) {
            failAt(static_cast<std::size_t>(control - text.begin()),
                   "a control character doesn't belong here");
        }
        for (std::size_t at = text.find("&#"); at != std::string::npos;
             at = text.find("&#", at + 1)) {
            const std::size_t end = text.find_first_not_of("x0", at + 2);
            if (end != std::string::npos && text[end] == ';') {
                failAt(at, "there is no character 0");
            }
        }
    }

    void parse() {
        const auto result = file.load_buffer(
            text.data(), text.size(),
            pugi::parse_default | pugi::parse_fragment | pugi::parse_doctype, pugi::encoding_utf8);
        if (result.status == pugi::status_out_of_memory) {
            throw std::bad_alloc();
        }
        if (!result) {
            const auto offset =
                static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0));
            failAt(offset,
                   offset + 1 >= text.size() ? "the file is cut off here" : result.description());
        }
    }

    pugi::xml_node findRoot() const {
        pugi::xml_node root;
        for (const pugi::xml_node node : file) {
            if (node.type() == pugi::node_doctype) {
                fail(node, "a setup file has no document type");
            }
            if (node.type() != pugi::node_element) {
                fail(node, "there is text outside the elements");
            }
            if (root) {
                fail(node, "a setup file has one root element, and this is a second");
            }
            root = node;
        }
        if (!root) {
            failAt(text.size(), text.empty() ? "the file is empty" : "there is no element in it");
        }
        return root;
    }

    pugi::xml_attribute requireVersion(pugi::xml_node root) const {
        const std::string_view tag = root.name();
        if (tag == "value" || tag == "attribute") {
            fail(root, "a setup file doesn't begin with <" + std::string(tag) + ">");
        }
        const pugi::xml_attribute attribute = root.attribute("version");
        const std::string digits = attribute.value();
        const bool isNumber =
            !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
        const auto number = parseNumber<unsigned>(digits);
        if (!isNumber || number == 0U) {
            fail(root, "this is no setup file: its root has no attribute version=\"" +
                           std::to_string(setupXmlVersion) + "\"");
        }
        if (!number || *number > setupXmlVersion) {
            fail(root,
                 "its version is " + digits + ", and this program knows versions up to " +
                     std::to_string(setupXmlVersion),
                 "Use a newer program");
        }
        return attribute;
    }

    CountedRef<SetupElement> readElement(pugi::xml_node node, bool hasName,
                                         std::size_t depth) const {
        requireDepth(node, depth);
        countNode(node);
        auto element = makeObject<SetupElement>(
            hasName ? requireAttribute(node, "name") : decoded(node, node.name()), readText(node));
        element->setLine(lineOf(node));
        readAttributes(*element, node, hasName, depth);
        readContent(*element, node, depth);
        return element;
    }

    void countNode(pugi::xml_node node) const {
        if (++nodes > mostSetupNodes) {
            fail(node, "there are more than " + std::to_string(mostSetupNodes) +
                           " elements and values, which no setup has");
        }
    }

    /// Nodes are asked for in their order in the file, more or less: from the last one on it costs
    /// little.
    std::size_t lineOf(pugi::xml_node node) const {
        const auto offset =
            static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0));
        if (offset < lineOffset) {
            lineOffset = 0;
            lineSeen = 1;
        }
        const auto from = text.begin() + static_cast<std::ptrdiff_t>(lineOffset);
        const auto to = text.begin() + static_cast<std::ptrdiff_t>(std::min(offset, text.size()));
        lineSeen += static_cast<std::size_t>(std::count(from, to, '\n'));
        lineOffset = static_cast<std::size_t>(to - text.begin());
        return lineSeen;
    }

    void requireDepth(pugi::xml_node node, std::size_t depth) const {
        if (depth > SetupElement::maxDepth) {
            fail(node, "the elements are more than " + std::to_string(SetupElement::maxDepth) +
                           " deep inside each other");
        }
    }

    void readAttributes(SetupElement& element, pugi::xml_node node, bool hasName,
                        std::size_t depth) const {
        const pugi::xml_attribute name = hasName ? node.attribute("name") : pugi::xml_attribute();
        for (const pugi::xml_attribute attribute : node.attributes()) {
            if (attribute != name && attribute != version) {
                requireDepth(node, depth + 1);
                countNode(node);
                const auto read = makeObject<SetupElement>(decoded(node, attribute.name()),
                                                           decoded(node, attribute.value()));
                attach(element.AddAttribute(read.get()));
            }
        }
    }

    void readContent(SetupElement& element, pugi::xml_node node, std::size_t depth) const {
        for (const pugi::xml_node child : node.children()) {
            const std::string_view tag = child.name();
            if (child.type() != pugi::node_element) {
                continue;
            }
            if (tag == "value") {
                readValue(element, child);
            } else if (tag == "attribute") {
                attach(element.AddAttribute(readElement(child, true, depth + 1).get()));
            } else {
                attach(element.AddChild(readElement(child, tag == "element", depth + 1).get()));
            }
        }
    }

    void readValue(SetupElement& element, pugi::xml_node node) const {
        countNode(node);
        const std::wstring key = requireAttribute(node, "key");
        const bool hasMore = node.first_attribute() != node.last_attribute() ||
                             node.find_child([](pugi::xml_node child) {
                                 return child.type() == pugi::node_element;
                             });
        if (hasMore) {
            fail(node, "a <value> has an attribute \"key\" and a text, and nothing else");
        }
        if (element.findValue(key) != nullptr) {
            fail(node, "the same element has a <value> of this key already");
        }
        element.setValue(key, readText(node), lineOf(node));
    }

    std::wstring readText(pugi::xml_node node) const {
        std::string whole;
        for (const pugi::xml_node child : node.children()) {
            if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
                whole += child.value();
            }
        }
        return decoded(node, whole);
    }

    std::wstring decoded(pugi::xml_node node, const std::string& fileText) const {
        if (fileText.size() > longestSetupText) {
            fail(node, "a text in it has more than " + std::to_string(longestSetupText) +
                           " bytes, which none of a setup has");
        }
        if (!utf8::is_valid(fileText.begin(), fileText.end())) {
            fail(node, "a character reference in it names no character");
        }
        auto result = fromFileText(fileText);
        if (!result) {
            fail(node,
                 "a text that begins with a double quote must end with one and know only \\\\, "
                 "\\\", "
                 "\\n, \\t and the like of \\u{1F} between them");
        }
        return std::move(*result);
    }

    std::wstring requireAttribute(pugi::xml_node node, const char* name) const {
        const pugi::xml_attribute attribute = node.attribute(name);
        if (!attribute) {
            fail(node, std::string("<") + node.name() + "> has no attribute \"" + name + "\"");
        }
        return decoded(node, attribute.value());
    }

    const std::string& text;
    pugi::xml_document file;
    pugi::xml_attribute version;
    mutable std::size_t nodes = 0;
    mutable std::size_t lineSeen = 1;  ///< that of `lineOffset`
    mutable std::size_t lineOffset = 0;
};

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

CountedRef<SetupElement> fromSetupXml(const std::string& text) {
    return Reader(text).read();
}

}  // namespace station
