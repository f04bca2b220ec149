#include "setup/kestrova_kcom_node.h"

#include <new>

#include "core/string_helper.h"
#include "host/host_error.h"
#include "setup/xml_exception.h"

namespace Kestrova::Utils::Kcom {
namespace {

using NodePtr = std::shared_ptr<Serialization::Node>;
using Serialization::XmlException;

/// A text on its way to the host, which lives until the call is over. Where hosts know two ways,
/// the narrow text of the system and UTF-8, they are one here: the system's text is UTF-8.
class WideText {
  public:
    explicit WideText(const std::string& utf8) {
        try {
            text = StringHelper::ToWide(utf8);
        } catch (const std::bad_alloc&) {
            raiseHostError(HostCode::outOfMemory);
        }
    }
    /// Null for an empty text.
    const wchar_t* get() const { return text.empty() ? nullptr : text.c_str(); }

  private:
    std::wstring text;
};

std::int32_t toIndex(std::uint64_t index) {
    if (index > 0x7FFFFFFF) {
        throw XmlException(XmlException::IndexTooLarge);
    }
    return static_cast<std::int32_t>(index);
}

/// Raises for an empty reference and for a node of another class.
const CountedRef<HostElement>& elementOf(const NodePtr& node) {
    return requireObject(dynamic_cast<const KestrovaKCOMNode*>(node.get())).GetElement();
}

/// The same object, which must be there.
template <typename T>
CountedRef<T> required(CountedRef<T> object) {
    requireObject(object);
    return object;
}

}  // namespace

KestrovaKCOMNode::KestrovaKCOMNode(CountedRef<HostDocument> documentOfNode,
                                   CountedRef<HostElement> elementOfNode, bool dummy)
    : Node(dummy), document(std::move(documentOfNode)), element(std::move(elementOfNode)) {}

KestrovaKCOMNode::KestrovaKCOMNode(CountedRef<HostDocument> documentOfNode, const NodePtr& content)
    : document(std::move(documentOfNode)) {
    requireDocument();
    element = hostObject(document, &HostDocument::GetRootElement);
    if (content) {
        requireElement();
        append(&HostElement::AddChild, deepCopy(content));
    }
}

KestrovaKCOMNode::KestrovaKCOMNode(const NodePtr& content, const CountedRef<HostApp>& host) {
    const bool writing = requireObject(content.get()).IsWriting();
    createDocument(host, writing);
    setRoot(deepCopy(content), writing);
}

KestrovaKCOMNode::KestrovaKCOMNode(const std::string& name, const std::string& text,
                                   const CountedRef<HostApp>& host, bool writing) {
    createDocument(host, writing);
    setRoot(createElement(name, text), writing);
}

void KestrovaKCOMNode::createDocument(const CountedRef<HostApp>& host, bool writing) {
    const auto factory = hostObject(host, &HostApp::getDocumentFactory);
    document =
        required(hostObject(factory, &HostDocumentFactory::createDocument, toHostBool(writing)));
}

void KestrovaKCOMNode::setRoot(CountedRef<HostElement> root, bool writing) {
    element = std::move(root);
    callHost(document, &HostDocument::SetRootElement, element.get());
    callHost(document, &HostDocument::SetMode, toHostBool(writing));
}

void KestrovaKCOMNode::requireDocument() const {
    if (!document) {
        throw XmlException(XmlException::DocumentNotSet);
    }
}

void KestrovaKCOMNode::requireElement() const {
    if (!element) {
        throw XmlException(XmlException::NodeNotInitialized);
    }
}

void KestrovaKCOMNode::requireBoth() const {
    requireDocument();
    requireElement();
}

NodePtr KestrovaKCOMNode::nodeFor(CountedRef<HostElement> found, bool dummy) const {
    return found ? std::make_shared<KestrovaKCOMNodeCreator>(document, std::move(found), dummy)
                 : nullptr;
}

CountedRef<HostElement> KestrovaKCOMNode::createElement(const std::string& name,
                                                        const std::string& text) const {
    return required(hostObject(document, &HostDocument::CreateElement, WideText(name).get(),
                               WideText(text).get()));
}

CountedRef<HostElement> KestrovaKCOMNode::deepCopy(const NodePtr& node) const {
    if (!node) {
        return {};
    }
    auto copy = createElement(node->GetName(), node->GetText());
    const auto attributes = static_cast<std::uint64_t>(node->GetAttributeCount());
    for (std::uint64_t i = 0; i < attributes; ++i) {
        callHost(copy, &HostElement::AddAttribute, deepCopy(node->GetAttribute(i)).get());
    }
    const auto children = static_cast<std::uint64_t>(node->GetChildCount());
    for (std::uint64_t i = 0; i < children; ++i) {
        callHost(copy, &HostElement::AddChild, deepCopy(node->GetChild(i)).get());
    }
    return copy;
}

NodePtr KestrovaKCOMNode::append(AddOperation add, CountedRef<HostElement> added) {
    callHost(element, add, added.get());
    return nodeFor(std::move(added));
}

NodePtr KestrovaKCOMNode::append(AddOperation add, const NodePtr& node) {
    requireBoth();
    const auto* const own = dynamic_cast<const KestrovaKCOMNode*>(node.get());
    return append(add, own != nullptr ? own->element : deepCopy(node));
}

void KestrovaKCOMNode::remove(AddOperation removal, NodePtr& node) {
    requireElement();
    if (node && node->IsDummy()) {
        throw XmlException(XmlException::DummyNode);
    }
    callHost(element, removal, elementOf(node).get());
    node.reset();
}

void KestrovaKCOMNode::removeAttribute(const CountedRef<HostElement>& found) {
    if (found) {
        callHost(element, &HostElement::RemoveAttribute, found.get());
    }
}

void KestrovaKCOMNode::Clear() {
    if (IsValid()) {
        element.reset();
        document.reset();
    }
}

NodePtr KestrovaKCOMNode::OpenChild(const std::string& name) {
    return IsWriting() ? AddChild(name) : GetChild(name);
}

NodePtr KestrovaKCOMNode::GetChild(const std::string& name) const {
    auto child = FindChild(name);
    return child ? child : nodeFor(createElement(name, ""), true);
}

NodePtr KestrovaKCOMNode::CreateNode(const std::string& name, const std::string& text) const {
    requireDocument();
    return nodeFor(createElement(name, text));
}

void KestrovaKCOMNode::CopyReference(const NodePtr& other) {
    requireDocument();
    element = elementOf(other);
}

void KestrovaKCOMNode::Recreate(const std::string& name, const std::string& text) {
    requireDocument();
    element = createElement(name, text);
}

void KestrovaKCOMNode::SetText(const std::string& text) {
    requireElement();
    callHost(element, &HostElement::SetText, WideText(text).get());
}

NodePtr KestrovaKCOMNode::AddChild(const NodePtr& node) {
    return append(&HostElement::AddChild, node);
}

NodePtr KestrovaKCOMNode::AddChild(const std::string& name) {
    requireBoth();
    return append(&HostElement::AddChild, createElement(name, ""));
}

NodePtr KestrovaKCOMNode::Clone() const {
    requireBoth();
    return nodeFor(required(hostObject(element, &HostElement::Clone)), isDummy);
}

NodePtr KestrovaKCOMNode::AddAttribute(const NodePtr& node) {
    return append(&HostElement::AddAttribute, node);
}

NodePtr KestrovaKCOMNode::AddAttribute(const std::string& name, const std::string& text) {
    requireBoth();
    return append(&HostElement::AddAttribute, createElement(name, text));
}

void KestrovaKCOMNode::ClearChildren() {
    requireElement();
    callHost(element, &HostElement::ClearChildren);
}

void KestrovaKCOMNode::ClearAttributes() {
    requireElement();
    callHost(element, &HostElement::ClearAttributes);
}

NodePtr KestrovaKCOMNode::FindChild(const std::string& name) const {
    requireBoth();
    return nodeFor(hostObject(element, &HostElement::FindChild, WideText(name).get()));
}

NodePtr KestrovaKCOMNode::FindAttribute(const std::string& name) const {
    requireBoth();
    return nodeFor(hostObject(element, &HostElement::FindAttribute, WideText(name).get()));
}

NodePtr KestrovaKCOMNode::GetAttribute(std::uint64_t index) const {
    requireBoth();
    return nodeFor(hostObject(element, &HostElement::GetAttribute, toIndex(index)));
}

NodePtr KestrovaKCOMNode::GetChild(std::uint64_t index) const {
    requireBoth();
    return nodeFor(hostObject(element, &HostElement::GetChild, toIndex(index)));
}

std::int64_t KestrovaKCOMNode::GetAttributeCount() const {
    requireElement();
    return hostValue(element, &HostElement::GetAttributeCount);
}

std::int64_t KestrovaKCOMNode::GetChildCount() const {
    requireElement();
    return hostValue(element, &HostElement::GetChildCount);
}

void KestrovaKCOMNode::RemoveAttribute(NodePtr& node) {
    remove(&HostElement::RemoveAttribute, node);
}

void KestrovaKCOMNode::RemoveAttribute(std::uint64_t index) {
    requireElement();
    removeAttribute(hostObject(element, &HostElement::GetAttribute, toIndex(index)));
}

void KestrovaKCOMNode::RemoveAttribute(const std::string& name) {
    requireElement();
    removeAttribute(hostObject(element, &HostElement::FindChild, WideText(name).get()));
}

void KestrovaKCOMNode::RemoveChild(NodePtr& node) {
    remove(&HostElement::RemoveChild, node);
}

void KestrovaKCOMNode::RemoveChild(std::uint64_t index) {
    RemoveAttribute(index);
}

void KestrovaKCOMNode::RemoveChild(const std::string& name) {
    RemoveAttribute(name);
}

std::string KestrovaKCOMNode::GetName() const {
    requireElement();
    return StringHelper::ToUtf8(hostValue(element, &HostElement::GetName));
}

std::string KestrovaKCOMNode::GetText() const {
    requireElement();
    return StringHelper::ToUtf8(hostValue(element, &HostElement::GetText));
}

NodePtr KestrovaKCOMNode::GetParent() const {
    requireBoth();
    return nodeFor(hostObject(element, &HostElement::GetParent));
}

void KestrovaKCOMNode::SetWriting(bool writing) {
    requireDocument();
    callHost(document, &HostDocument::SetMode, toHostBool(writing));
}

bool KestrovaKCOMNode::IsWriting() const {
    requireDocument();
    return hostValue(document, &HostDocument::GetMode) == HostDocument::modeWriting;
}

bool KestrovaKCOMNode::IsValid() const {
    return document && element;
}

bool KestrovaKCOMNode::IsEmpty() const {
    return GetChildCount() == 0 && GetAttributeCount() == 0 && GetText().empty();
}

void KestrovaKCOMNode::WriteValue(const std::string& key, const std::string& value,
                                  const std::string& defaultValue) {
    requireBoth();
    callHost(document, &HostDocument::WriteValue, element.get(), WideText(key).get(),
             WideText(value).get(), WideText(defaultValue).get());
}

void KestrovaKCOMNode::ReadValue(const std::string& key, std::string& result,
                                 const std::string& defaultValue) const {
    requireBoth();
    std::wstring read = L"s";
    callHost(document, &HostDocument::ReadValue, element.get(), WideText(key).get(), &read,
             WideText(defaultValue).get());
    result = isDummy ? defaultValue : StringHelper::ToUtf8(read);
}

NodePtr KestrovaKCOMNode::GetOrAddChild(const std::string& name) {
    auto child = FindChild(name);
    return child ? child : AddChild(name);
}

}  // namespace Kestrova::Utils::Kcom
