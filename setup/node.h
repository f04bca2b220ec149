#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Kestrova::Utils::Serialization {

/// An element of the setup tree: a name, a text, attributes, children and keyed values. All parts
/// of the system keep their setup through this class and never learn what is behind it.
///
/// A node is a handle: it keeps its document and element alive, while the tree belongs to the
/// document. `const` is said of the handle, so a const node gives handles through which the tree
/// can be changed. An empty reference means that there is no such node. The direction of the work
/// lies in the document: `IsWriting` says which, and `OpenChild` follows it.
///
/// `GetChild(name)` never gives an empty reference: for a child that isn't there it makes a
/// *dummy*, so that a reader can go on without testing each step. Reads on a dummy give their
/// defaults, its children are dummies too, and what is written to it is lost.
///
/// Names, texts and values are UTF-8. Failures are `XmlException`: each operation checks first for
/// its document (`DocumentNotSet`), then for its element (`NodeNotInitialized`); an index above
/// 0x7FFFFFFF is `IndexTooLarge`. Errors of the document itself travel as the host's errors.
///
/// Not synchronised: all setup work happens on the host's thread.
class Node {
  public:
    virtual ~Node() = default;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    /// Drops the element and the document; after that only `IsValid` doesn't throw.
    virtual void Clear() = 0;
    /// `AddChild(name)` when writing, `GetChild(name)` when reading: one routine can do both.
    virtual std::shared_ptr<Node> OpenChild(const std::string& name) = 0;
    /// The first child of that name, or a new dummy.
    virtual std::shared_ptr<Node> GetChild(const std::string& name) const = 0;
    /// A new element of the document in no tree; not a dummy.
    virtual std::shared_ptr<Node> CreateNode(const std::string& name,
                                             const std::string& text) const = 0;
    /// This node now refers to the same element as the other.
    virtual void CopyReference(const std::shared_ptr<Node>& other) = 0;
    /// This node now refers to a new element in no tree.
    virtual void Recreate(const std::string& name, const std::string& text) = 0;
    virtual void SetText(const std::string& text) = 0;
    /// Appends the element of the other node itself where both are of one class, else a copy.
    /// Returns a node for what was appended.
    virtual std::shared_ptr<Node> AddChild(const std::shared_ptr<Node>& node) = 0;
    /// Appends a new empty child, also where there is one of that name.
    virtual std::shared_ptr<Node> AddChild(const std::string& name) = 0;
    /// A copy of the element with all that is in it, in no tree. The copy of a dummy is a dummy.
    virtual std::shared_ptr<Node> Clone() const = 0;
    virtual std::shared_ptr<Node> AddAttribute(const std::shared_ptr<Node>& node) = 0;
    virtual void ClearChildren() = 0;
    virtual void ClearAttributes() = 0;
    /// The first of that name, or empty.
    virtual std::shared_ptr<Node> FindChild(const std::string& name) const = 0;
    virtual std::shared_ptr<Node> FindAttribute(const std::string& name) const = 0;
    /// Empty from the attribute count on.
    virtual std::shared_ptr<Node> GetAttribute(std::uint64_t index) const = 0;
    /// Empty from the child count on.
    virtual std::shared_ptr<Node> GetChild(std::uint64_t index) const = 0;
    virtual std::int64_t GetAttributeCount() const = 0;
    virtual std::int64_t GetChildCount() const = 0;

    // Saved setups rely on three of these not being symmetric: `RemoveChild(index)` takes from the
    // attributes, and both forms with a name look among the children and remove what they find
    // from the attributes. Only `RemoveChild(node)` removes a child.

    /// Empties the reference passed in. A dummy is `DummyNode` and stays in the reference.
    virtual void RemoveAttribute(std::shared_ptr<Node>& node) = 0;
    virtual void RemoveAttribute(std::uint64_t index) = 0;
    virtual void RemoveAttribute(const std::string& name) = 0;
    /// Empties the reference passed in. A dummy is `DummyNode` and stays in the reference.
    virtual void RemoveChild(std::shared_ptr<Node>& node) = 0;
    virtual void RemoveChild(std::uint64_t index) = 0;
    virtual void RemoveChild(const std::string& name) = 0;

    virtual std::string GetName() const = 0;
    virtual std::string GetText() const = 0;
    /// Empty for the root and for what hangs in no tree.
    virtual std::shared_ptr<Node> GetParent() const = 0;
    /// Sets the direction of the whole document.
    virtual void SetWriting(bool writing) = 0;
    virtual bool IsWriting() const = 0;
    /// Whether there are a document and an element. Never throws.
    virtual bool IsValid() const = 0;
    /// No children, no attributes and an empty text; keyed values don't count.
    virtual bool IsEmpty() const = 0;
    /// The document may leave out a value that equals `defaultValue`; see `ForceWrite`.
    virtual void WriteValue(const std::string& key, const std::string& value,
                            const std::string& defaultValue) = 0;
    /// Puts the value of the key, or else `defaultValue`, into `result`.
    virtual void ReadValue(const std::string& key, std::string& result,
                           const std::string& defaultValue) const = 0;
    virtual std::shared_ptr<Node> AddAttribute(const std::string& name,
                                               const std::string& text) = 0;
    /// `FindChild`, or else `AddChild(name)`.
    virtual std::shared_ptr<Node> GetOrAddChild(const std::string& name) = 0;

    /// Whether the node represents something that isn't in the document.
    bool IsDummy() const { return isDummy; }
    /// What makes a default that can't equal the value it is appended to.
    const std::string& GetForceWriteSuffix() const { return forceWriteSuffix; }

  protected:
    explicit Node(bool dummy = false) : isDummy(dummy) {}

    bool isDummy;
    std::string emptyText;
    std::string forceWriteSuffix = "#";
};

}  // namespace Kestrova::Utils::Serialization
