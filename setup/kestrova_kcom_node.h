#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "host/counted_ref.h"
#include "host/host_app.h"
#include "host/host_document.h"
#include "setup/node.h"

namespace Kestrova::Utils::Kcom {

/// A `Node` over the host's setup document: it checks, converts the texts, and makes one call of
/// the document or of the element out of each operation. What the node class promises in general,
/// `Node` says; what hosts rely on beyond it is here.
///
/// A failed call of the host is `HostCallException`, and so is an object that the host doesn't hand
/// over where there must be one (`HostCode::invalidPointer`), or an argument that is empty or of
/// another class where the element itself is needed. Nothing is retried or rolled back. An empty
/// text travels as null.
///
/// Each node holds one reference to the document and one to its element, so the document lives as
/// long as its last node. Each reference is given back exactly once, by `Clear`, `CopyReference`
/// and `Recreate` too, which simply drop it: no count is given back for others.
///
/// On the host's thread only.
class KestrovaKCOMNode : public Serialization::Node {
  public:
    using NodePtr = std::shared_ptr<Serialization::Node>;

    /// Does nothing to a node that lacks the document or the element.
    void Clear() override;
    NodePtr OpenChild(const std::string& name) override;
    NodePtr GetChild(const std::string& name) const override;
    NodePtr CreateNode(const std::string& name, const std::string& text) const override;
    void CopyReference(const NodePtr& other) override;
    void Recreate(const std::string& name, const std::string& text) override;
    void SetText(const std::string& text) override;
    /// Of a node of another class a deep copy is appended: names, texts, attributes and children,
    /// but not the keyed values, which no node can list. An empty reference is handed to the
    /// element as null.
    NodePtr AddChild(const NodePtr& node) override;
    NodePtr AddChild(const std::string& name) override;
    NodePtr Clone() const override;
    /// As `AddChild(node)`.
    NodePtr AddAttribute(const NodePtr& node) override;
    void ClearChildren() override;
    void ClearAttributes() override;
    NodePtr FindChild(const std::string& name) const override;
    NodePtr FindAttribute(const std::string& name) const override;
    NodePtr GetAttribute(std::uint64_t index) const override;
    NodePtr GetChild(std::uint64_t index) const override;
    std::int64_t GetAttributeCount() const override;
    std::int64_t GetChildCount() const override;
    void RemoveAttribute(NodePtr& node) override;
    void RemoveAttribute(std::uint64_t index) override;
    void RemoveAttribute(const std::string& name) override;
    void RemoveChild(NodePtr& node) override;
    void RemoveChild(std::uint64_t index) override;
    void RemoveChild(const std::string& name) override;
    std::string GetName() const override;
    std::string GetText() const override;
    NodePtr GetParent() const override;
    void SetWriting(bool writing) override;
    bool IsWriting() const override;
    bool IsValid() const override;
    bool IsEmpty() const override;
    void WriteValue(const std::string& key, const std::string& value,
                    const std::string& defaultValue) override;
    /// A document that reads nothing and doesn't fail gives "s".
    void ReadValue(const std::string& key, std::string& result,
                   const std::string& defaultValue) const override;
    NodePtr AddAttribute(const std::string& name, const std::string& text) override;
    NodePtr GetOrAddChild(const std::string& name) override;

    /// What the node represents, for calls of the host that take the objects themselves.
    const CountedRef<HostDocument>& GetDocument() const { return document; }
    const CountedRef<HostElement>& GetElement() const { return element; }

  protected:
    /// Over what is there already. Both may be empty.
    KestrovaKCOMNode(CountedRef<HostDocument> documentOfNode, CountedRef<HostElement> elementOfNode,
                     bool dummy = false);
    /// Over the root of the document, to which a deep copy of `content` is added if there is one.
    KestrovaKCOMNode(CountedRef<HostDocument> documentOfNode, const NodePtr& content);
    /// Over a new document of the host in the mode of `content`, with a deep copy of it as root.
    KestrovaKCOMNode(const NodePtr& content, const CountedRef<HostApp>& host);
    /// Over a new document of the host with a new root.
    KestrovaKCOMNode(const std::string& name, const std::string& text,
                     const CountedRef<HostApp>& host, bool writing);

  private:
    using AddOperation = HostResult (HostElement::*)(HostElement*);

    void requireDocument() const;
    void requireElement() const;
    void requireBoth() const;
    NodePtr nodeFor(CountedRef<HostElement> found, bool dummy = false) const;
    CountedRef<HostElement> createElement(const std::string& name, const std::string& text) const;
    CountedRef<HostElement> deepCopy(const NodePtr& node) const;
    NodePtr append(AddOperation add, CountedRef<HostElement> added);
    NodePtr append(AddOperation add, const NodePtr& node);
    void remove(AddOperation removal, NodePtr& node);
    void removeAttribute(const CountedRef<HostElement>& found);
    void createDocument(const CountedRef<HostApp>& host, bool writing);
    void setRoot(CountedRef<HostElement> root, bool writing);

    CountedRef<HostDocument> document;
    CountedRef<HostElement> element;
};

/// Opens the constructors to `std::make_shared`. Every node of this layer is made through it:
///
///     const auto node = std::make_shared<KestrovaKCOMNodeCreator>(document, element);
class KestrovaKCOMNodeCreator final : public KestrovaKCOMNode {
  public:
    template <typename... Arguments>
    explicit KestrovaKCOMNodeCreator(Arguments&&... arguments)
        : KestrovaKCOMNode(std::forward<Arguments>(arguments)...) {}
};

}  // namespace Kestrova::Utils::Kcom
