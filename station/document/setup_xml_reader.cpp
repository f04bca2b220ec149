#include <utf8.h>

#include <algorithm>
#include <charconv>
#include <new>
#include <pugixml.hpp>
#include <string_view>

#include "station/document/setup_text.h"
#include "station/document/setup_xml.h"

namespace station {
namespace {

/// Turns the text of a file into elements. Knows where each thing is in the text.
class Reader {
  public:
    explicit Reader(const std::string& fileText) : text(fileText) {}

    CountedRef<SetupElement> read();

  private:
    void requireCharacters() const;
    void parse();
    pugi::xml_node findRoot() const;
    pugi::xml_attribute requireVersion(pugi::xml_node root) const;
    CountedRef<SetupElement> readElement(pugi::xml_node node, bool hasName,
                                         std::size_t depth) const;
    void requireDepth(pugi::xml_node node, std::size_t depth) const;
    void readAttributes(SetupElement& element, pugi::xml_node node, bool hasName,
                        std::size_t depth) const;
    void readContent(SetupElement& element, pugi::xml_node node, std::size_t depth) const;
    void readValue(SetupElement& element, pugi::xml_node node) const;
    std::wstring readText(pugi::xml_node node) const;
    std::wstring decoded(pugi::xml_node node, const std::string& fileText) const;
    std::wstring requireAttribute(pugi::xml_node node, const char* name) const;

    [[noreturn]] void failAt(std::size_t offset, const std::string& cause,
                             const std::string& advice = {}) const;
    [[noreturn]] void fail(pugi::xml_node node, const std::string& cause,
                           const std::string& advice = {}) const {
        failAt(static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0)), cause,
               advice);
    }

    const std::string& text;
    pugi::xml_document file;
    pugi::xml_attribute version;
};

CountedRef<SetupElement> Reader::read() {
    requireCharacters();
    parse();
    const pugi::xml_node root = findRoot();
    version = requireVersion(root);
    return readElement(root, std::string_view(root.name()) == "element", 1);
}

void Reader::failAt(std::size_t offset, const std::string& cause, const std::string& advice) const {
    const std::string_view before = std::string_view(text).substr(0, std::min(offset, text.size()));
    const auto line = std::count(before.begin(), before.end(), '\n');
    const std::string_view start = before.substr(before.rfind('\n') + 1);
    const auto column = std::count_if(start.begin(), start.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;  // begins a character
    });
    throw SetupXmlError(static_cast<std::size_t>(line) + 1, static_cast<std::size_t>(column) + 1,
                        cause, advice);
}

/// pugixml takes what comes; here is where a file of another kind is refused.
void Reader::requireCharacters() const {
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
    for (std::size_t at = text.find("&#"); at != std::string::npos; at = text.find("&#", at + 1)) {
        const std::size_t end = text.find_first_not_of("x0", at + 2);
        if (end != std::string::npos && text[end] == ';') {
            failAt(at, "there is no character 0");
        }
    }
}

void Reader::parse() {
    const auto result = file.load_buffer(
        text.data(), text.size(), pugi::parse_default | pugi::parse_fragment | pugi::parse_doctype,
        pugi::encoding_utf8);
    if (result.status == pugi::status_out_of_memory) {
        throw std::bad_alloc();
    }
    if (!result) {
        const auto offset = static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0));
        failAt(offset,
               offset + 1 >= text.size() ? "the file is cut off here" : result.description());
    }
}

pugi::xml_node Reader::findRoot() const {
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

pugi::xml_attribute Reader::requireVersion(pugi::xml_node root) const {
    const std::string_view tag = root.name();
    if (tag == "value" || tag == "attribute") {
        fail(root, "a setup file doesn't begin with <" + std::string(tag) + ">");
    }
    const pugi::xml_attribute attribute = root.attribute("version");
    const std::string_view digits = attribute.value();
    unsigned number = 0;
    const auto [stop, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error == std::errc::invalid_argument || stop != digits.data() + digits.size() ||
        (error == std::errc() && number == 0)) {
        fail(root, "this is no setup file: its root has no attribute version=\"" +
                       std::to_string(setupXmlVersion) + "\"");
    }
    if (error != std::errc() || number > setupXmlVersion) {
        fail(root,
             "its version is " + std::string(digits) + ", and this program knows versions up to " +
                 std::to_string(setupXmlVersion),
             "Use a newer program");
    }
    return attribute;
}

CountedRef<SetupElement> Reader::readElement(pugi::xml_node node, bool hasName,
                                             std::size_t depth) const {
    requireDepth(node, depth);
    auto element = makeObject<SetupElement>(
        hasName ? requireAttribute(node, "name") : decoded(node, node.name()), readText(node));
    readAttributes(*element, node, hasName, depth);
    readContent(*element, node, depth);
    return element;
}

void attach(HostResult result) {
    if (result < 0) {  // its other causes are ruled out while reading
        throw std::bad_alloc();
    }
}

void Reader::requireDepth(pugi::xml_node node, std::size_t depth) const {
    if (depth > SetupElement::maxDepth) {
        fail(node, "the elements are more than " + std::to_string(SetupElement::maxDepth) +
                       " deep inside each other");
    }
}

void Reader::readAttributes(SetupElement& element, pugi::xml_node node, bool hasName,
                            std::size_t depth) const {
    const pugi::xml_attribute name = hasName ? node.attribute("name") : pugi::xml_attribute();
    for (const pugi::xml_attribute attribute : node.attributes()) {
        if (attribute != name && attribute != version) {
            requireDepth(node, depth + 1);
            const auto read = makeObject<SetupElement>(decoded(node, attribute.name()),
                                                       decoded(node, attribute.value()));
            attach(element.AddAttribute(read.get()));
        }
    }
}

void Reader::readContent(SetupElement& element, pugi::xml_node node, std::size_t depth) const {
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

void Reader::readValue(SetupElement& element, pugi::xml_node node) const {
    const std::wstring key = requireAttribute(node, "key");
    const bool hasMore =
        node.first_attribute() != node.last_attribute() ||
        node.find_child([](pugi::xml_node child) { return child.type() == pugi::node_element; });
    if (hasMore) {
        fail(node, "a <value> has an attribute \"key\" and a text, and nothing else");
    }
    if (element.findValue(key) != nullptr) {
        fail(node, "the same element has a <value> of this key already");
    }
    element.setValue(key, readText(node));
}

std::wstring Reader::readText(pugi::xml_node node) const {
    std::string whole;
    for (const pugi::xml_node child : node.children()) {
        if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
            whole += child.value();
        }
    }
    return decoded(node, whole);
}

std::wstring Reader::decoded(pugi::xml_node node, const std::string& fileText) const {
    if (!utf8::is_valid(fileText.begin(), fileText.end())) {
        fail(node, "a character reference in it names no character");
    }
    auto result = fromFileText(fileText);
    if (!result) {
        fail(node,
             "a text that begins with a double quote must end with one and know only \\\\, \\\", "
             "\\n, \\t and the like of \\u{1F} between them");
    }
    return std::move(*result);
}

std::wstring Reader::requireAttribute(pugi::xml_node node, const char* name) const {
    const pugi::xml_attribute attribute = node.attribute(name);
    if (!attribute) {
        fail(node, std::string("<") + node.name() + "> has no attribute \"" + name + "\"");
    }
    return decoded(node, attribute.value());
}

}  // namespace

CountedRef<SetupElement> fromSetupXml(const std::string& text) {
    return Reader(text).read();
}

}  // namespace station
