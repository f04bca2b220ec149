#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/host_document.h"
#include "station/host/counted.h"

namespace station {

/// An element of the station's setup documents.
///
/// It owns its attributes and children by reference; the way up to its parent owns nothing, and the
/// parent takes it back when it ends. So a tree goes with the last reference to its root, and an
/// element that somebody still holds lives on without a parent.
///
/// Invariant: an element hangs in one place at most and never below itself, and no tree is deeper
/// than `maxDepth`. What would break it is refused, so that everything that walks a tree may
/// recurse.
///
/// On the host's thread only.
class SetupElement final : public Counted<HostElement> {
  public:
    using List = std::vector<CountedRef<SetupElement>>;
    struct Value {
        std::wstring key;
        std::wstring text;
        std::size_t line = 0;  ///< in the file that it was read from; 0: none
    };
    struct Content {
        std::wstring name;
        std::wstring text;
        std::vector<Value> values;  ///< in the order of their first writing
        List attributes;
        List children;
    };

    /// Elements from the root down to the deepest.
    static constexpr std::size_t maxDepth = 256;

    SetupElement(std::wstring name, std::wstring text);

    const Content& getContent() const { return content; }
    /// Where it begins in the file that it was read from; 0: it wasn't.
    std::size_t getLine() const { return line; }
    void setLine(std::size_t number) { line = number; }
    /// Whether it has a parent.
    bool isInTree() const { return parent != nullptr; }
    /// Keeps the value under the key, in place of the one that is there.
    void setValue(const std::wstring& key, const std::wstring& text, std::size_t fileLine = 0);
    void dropValue(const std::wstring& key);
    /// Null if there is no value for the key.
    const std::wstring* findValue(const std::wstring& key) const;

    HostResult SetText(const wchar_t* text) override {
        return guarded([&] { return put(content.text, textOf(text)); });
    }
    HostResult AddChild(HostElement* child) override { return append(content.children, child); }
    /// Does nothing for what isn't a child.
    HostResult RemoveChild(HostElement* child) override { return takeOut(content.children, child); }
    HostResult ClearChildren() override { return clear(content.children); }
    HostResult FindChild(const wchar_t* name, HostElement** child) override {
        return handFirst(content.children, name, child);
    }
    HostResult GetChild(std::int32_t index, HostElement** child) override {
        return handAt(content.children, index, child);
    }
    HostResult GetChildCount(std::int32_t* count) override {
        return give(count, static_cast<std::int32_t>(content.children.size()));
    }
    HostResult Clone(HostElement** copy) override {
        return guarded([&] { return handOver(copied(), copy); });
    }
    /// Of an attribute, the element that has it.
    HostResult GetParent(HostElement** result) override {
        return handOver(CountedRef<SetupElement>(parent), result);
    }
    HostResult AddAttribute(HostElement* attribute) override {
        return append(content.attributes, attribute);
    }
    /// Does nothing for what isn't an attribute.
    HostResult RemoveAttribute(HostElement* attribute) override {
        return takeOut(content.attributes, attribute);
    }
    HostResult FindAttribute(const wchar_t* name, HostElement** attribute) override {
        return handFirst(content.attributes, name, attribute);
    }
    HostResult GetAttribute(std::int32_t index, HostElement** attribute) override {
        return handAt(content.attributes, index, attribute);
    }
    HostResult GetAttributeCount(std::int32_t* count) override {
        return give(count, static_cast<std::int32_t>(content.attributes.size()));
    }
    HostResult ClearAttributes() override { return clear(content.attributes); }
    HostResult GetName(std::wstring* name) override {
        return guarded([&] { return give(name, content.name); });
    }
    HostResult GetText(std::wstring* text) override {
        return guarded([&] { return give(text, content.text); });
    }

  private:
    ~SetupElement() override;

    std::size_t getDepth() const;
    std::size_t getHeight() const;
    bool isBelow(const SetupElement* other) const;
    CountedRef<SetupElement> copied() const;
    HostResult append(List& list, HostElement* element);
    static HostResult takeOut(List& list, HostElement* element);
    static HostResult clear(List& list);
    static HostResult handFirst(const List& list, const wchar_t* name, HostElement** result);
    static HostResult handAt(const List& list, std::int32_t index, HostElement** result);

    Content content;
    std::unordered_map<std::wstring, std::size_t> places;  ///< of `content.values`, by key
    SetupElement* parent = nullptr;
    std::size_t line = 0;
};

/// A setup document of the station: a root and the direction of the work. Elements of one document
/// may move to another. A value that equals its default isn't kept.
///
/// On the host's thread only.
class SetupDocument final : public Counted<HostDocument> {
  public:
    explicit SetupDocument(bool forWriting) : writing(forWriting) {}

    /// Empty in a new document.
    const CountedRef<SetupElement>& getRoot() const { return root; }

    HostResult GetRootElement(HostElement** result) override { return handOver(root, result); }
    /// Null takes the root away. What hangs in a tree can't be a root.
    HostResult SetRootElement(HostElement* element) override;
    HostResult CreateElement(const wchar_t* name, const wchar_t* text,
                             HostElement** element) override;
    HostResult WriteValue(HostElement* element, const wchar_t* key, const wchar_t* value,
                          const wchar_t* defaultValue) override;
    HostResult ReadValue(HostElement* element, const wchar_t* key, std::wstring* value,
                         const wchar_t* defaultValue) override;
    HostResult GetMode(std::int32_t* mode) override {
        return give(mode, writing ? modeWriting : 0);
    }
    HostResult SetMode(HostBool forWriting) override { return put(writing, isTrue(forWriting)); }

  private:
    CountedRef<SetupElement> root;
    bool writing;
};

class SetupDocumentFactory final : public Counted<HostDocumentFactory> {
  public:
    HostResult createDocument(HostBool writing, HostDocument** document) override;
};

}  // namespace station
