#include "tests/support/memory_node.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "setup/xml_exception.h"

namespace Kestrova::Utils::Serialization {
namespace {

struct Element;
using ElementPtr = std::shared_ptr<Element>;
using Elements = std::vector<ElementPtr>;
using NodePtr = std::shared_ptr<Node>;

struct Element {
    std::string name;
    std::string text;
    std::vector<std::pair<std::string, std::string>> values;
    Elements attributes;
    Elements children;
    std::weak_ptr<Element> parent;
};

struct Document {
    ElementPtr root;
    bool writing = false;
};

ElementPtr makeElement(const std::string& name, const std::string& text) {
    return std::make_shared<Element>(Element{name, text, {}, {}, {}, {}});
}

ElementPtr find(const Elements& list, const std::string& name) {
    const auto found = std::find_if(
        list.begin(), list.end(), [&](const ElementPtr& element) { return element->name == name; });
    return found == list.end() ? nullptr : *found;
}

auto findValue(Element& element, const std::string& key) {
    return std::find_if(element.values.begin(), element.values.end(),
                        [&](const auto& entry) { return entry.first == key; });
}

void removeFrom(Elements& list, const ElementPtr& element) {
    const auto found = std::find(list.begin(), list.end(), element);
    if (found != list.end()) {
        (*found)->parent.reset();
        list.erase(found);
    }
}

void clearList(Elements& list) {
    for (const auto& element : list) {
        element->parent.reset();
    }
    list.clear();
}

ElementPtr deepCopy(const Element& original) {
    const auto copy = std::make_shared<Element>(original);
    copy->parent.reset();
    for (Elements* list : {&copy->attributes, &copy->children}) {
        for (auto& element : *list) {
            element = deepCopy(*element);
            element->parent = copy;
        }
    }
    return copy;
}

void requireSmallIndex(std::uint64_t index) {
    if (index > 0x7FFFFFFF) {
        throw XmlException(XmlException::IndexTooLarge);
    }
}

void print(std::ostream& out, const Element& element, const std::string& indent,
           const char* prefix) {
    out << indent << prefix << element.name;
    if (!element.text.empty()) {
        out << " \"" << element.text << '"';
    }
    out << '\n';
    const std::string inner = indent + "  ";
    for (const auto& attribute : element.attributes) {
        print(out, *attribute, inner, "@");
    }
    for (const auto& [key, value] : element.values) {
        out << inner << key << " = " << value << '\n';
    }
    for (const auto& child : element.children) {
        print(out, *child, inner, "");
    }
}

class MemoryNodeImpl final : public MemoryNode {
  public:
    MemoryNodeImpl(std::shared_ptr<Document> documentOfNode, ElementPtr elementOfNode,
                   bool dummy = false)
        : MemoryNode(dummy),
          document(std::move(documentOfNode)),
          element(std::move(elementOfNode)) {}

    void Clear() override {
        element.reset();
        document.reset();
    }
    NodePtr OpenChild(const std::string& name) override {
        return requireDocument().writing ? AddChild(name) : GetChild(name);
    }
    NodePtr GetChild(const std::string& name) const override {
        const auto child = FindChild(name);
        return child ? child
                     : std::make_shared<MemoryNodeImpl>(document, makeElement(name, ""), true);
    }
    NodePtr CreateNode(const std::string& name, const std::string& text) const override {
        requireDocument();
        return nodeFor(makeElement(name, text));
    }
    void CopyReference(const NodePtr& other) override {
        requireDocument();
        element = elementOf(other);
    }
    void Recreate(const std::string& name, const std::string& text) override {
        requireDocument();
        element = makeElement(name, text);
    }
    void SetText(const std::string& text) override { requireElement().text = text; }
    NodePtr AddChild(const NodePtr& node) override {
        return append(requireBoth().children, elementOf(node));
    }
    NodePtr AddChild(const std::string& name) override {
        return append(requireBoth().children, makeElement(name, ""));
    }
    NodePtr Clone() const override {
        return std::make_shared<MemoryNodeImpl>(document, deepCopy(requireBoth()), isDummy);
    }
    NodePtr AddAttribute(const NodePtr& node) override {
        return append(requireBoth().attributes, elementOf(node));
    }
    void ClearChildren() override { clearList(requireElement().children); }
    void ClearAttributes() override { clearList(requireElement().attributes); }
    NodePtr FindChild(const std::string& name) const override {
        return nodeFor(find(requireBoth().children, name));
    }
    NodePtr FindAttribute(const std::string& name) const override {
        return nodeFor(find(requireBoth().attributes, name));
    }
    NodePtr GetAttribute(std::uint64_t index) const override {
        return nodeAt(requireBoth().attributes, index);
    }
    NodePtr GetChild(std::uint64_t index) const override {
        return nodeAt(requireBoth().children, index);
    }
    std::int64_t GetAttributeCount() const override {
        return std::ssize(requireElement().attributes);
    }
    std::int64_t GetChildCount() const override { return std::ssize(requireElement().children); }
    void RemoveAttribute(NodePtr& node) override { removeNode(requireElement().attributes, node); }
    void RemoveAttribute(std::uint64_t index) override {
        Elements& list = requireElement().attributes;
        requireSmallIndex(index);
        if (index < list.size()) {
            removeFrom(list, ElementPtr(list[index]));
        }
    }
    void RemoveAttribute(const std::string& name) override {
        removeFrom(requireElement().attributes, find(requireElement().children, name));
    }
    void RemoveChild(NodePtr& node) override { removeNode(requireElement().children, node); }
    void RemoveChild(std::uint64_t index) override { RemoveAttribute(index); }
    void RemoveChild(const std::string& name) override { RemoveAttribute(name); }
    std::string GetName() const override { return requireElement().name; }
    std::string GetText() const override { return requireElement().text; }
    NodePtr GetParent() const override { return nodeFor(requireBoth().parent.lock()); }
    void SetWriting(bool writing) override { requireDocument().writing = writing; }
    bool IsWriting() const override { return requireDocument().writing; }
    bool IsValid() const override { return document && element; }
    bool IsEmpty() const override {
        return GetChildCount() == 0 && GetAttributeCount() == 0 && GetText().empty();
    }
    void WriteValue(const std::string& key, const std::string& value,
                    const std::string& defaultValue) override {
        auto& values = requireBoth().values;
        const auto found = findValue(*element, key);
        if (value != defaultValue) {
            (found == values.end() ? values.emplace_back(key, "") : *found).second = value;
        } else if (found != values.end()) {
            values.erase(found);
        }
    }
    void ReadValue(const std::string& key, std::string& result,
                   const std::string& defaultValue) const override {
        const auto& values = requireBoth().values;
        const auto found = findValue(*element, key);
        result = isDummy || found == values.end() ? defaultValue : found->second;
    }
    NodePtr AddAttribute(const std::string& name, const std::string& text) override {
        return append(requireBoth().attributes, makeElement(name, text));
    }
    NodePtr GetOrAddChild(const std::string& name) override {
        const auto child = FindChild(name);
        return child ? child : AddChild(name);
    }

    Element& requireElement() const {
        if (!element) {
            throw XmlException(XmlException::NodeNotInitialized);
        }
        return *element;
    }

  private:
    Document& requireDocument() const {
        if (!document) {
            throw XmlException(XmlException::DocumentNotSet);
        }
        return *document;
    }
    Element& requireBoth() const {
        requireDocument();
        return requireElement();
    }
    static ElementPtr elementOf(const NodePtr& node) {
        const auto* other = dynamic_cast<const MemoryNodeImpl*>(node.get());
        if (other == nullptr || !other->element) {
            throw std::invalid_argument("A MemoryNode takes only valid nodes of its own class.");
        }
        return other->element;
    }
    NodePtr nodeFor(const ElementPtr& other) const {
        return other ? std::make_shared<MemoryNodeImpl>(document, other) : nullptr;
    }
    NodePtr nodeAt(const Elements& list, std::uint64_t index) const {
        requireSmallIndex(index);
        return index < list.size() ? nodeFor(list[index]) : nullptr;
    }
    NodePtr append(Elements& list, const ElementPtr& other) {
        if (!other->parent.expired()) {
            throw std::invalid_argument("The element hangs in a tree already.");
        }
        other->parent = element;
        list.push_back(other);
        return nodeFor(other);
    }
    static void removeNode(Elements& list, NodePtr& node) {
        const auto other = elementOf(node);
        if (node->IsDummy()) {
            throw XmlException(XmlException::DummyNode);
        }
        removeFrom(list, other);
        node.reset();
    }

    std::shared_ptr<Document> document;
    ElementPtr element;
};

}  // namespace

std::shared_ptr<Node> MemoryNode::createDocument(const std::string& rootName, bool writing) {
    const auto root = makeElement(rootName, "");
    return std::make_shared<MemoryNodeImpl>(std::make_shared<Document>(Document{root, writing}),
                                            root);
}

std::string toText(const Node& node) {
    std::ostringstream out;
    print(out, dynamic_cast<const MemoryNodeImpl&>(node).requireElement(), "", "");
    return out.str();
}

}  // namespace Kestrova::Utils::Serialization
