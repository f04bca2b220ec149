#pragma once

#include <cstddef>
#include <string>
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
    /// Whether it has a parent.
    bool isInTree() const { return parent != nullptr; }
    /// Keeps the value under the key, in place of the one that is there.
    void setValue(const std::wstring& key, const std::wstring& text);
    void dropValue(const std::wstring& key);
    /// Null if there is no value for the key.
    const std::wstring* findValue(const std::wstring& key) const;

    HostResult SetText(const wchar_t* text) override;
    HostResult AddChild(HostElement* child) override;
    /// Does nothing for what isn't a child.
    HostResult RemoveChild(HostElement* child) override;
    HostResult ClearChildren() override;
    HostResult FindChild(const wchar_t* name, HostElement** child) override;
    HostResult GetChild(std::int32_t index, HostElement** child) override;
    HostResult GetChildCount(std::int32_t* count) override;
    HostResult Clone(HostElement** copy) override;
    /// Of an attribute, the element that has it.
    HostResult GetParent(HostElement** result) override;
    HostResult AddAttribute(HostElement* attribute) override;
    /// Does nothing for what isn't an attribute.
    HostResult RemoveAttribute(HostElement* attribute) override;
    HostResult FindAttribute(const wchar_t* name, HostElement** attribute) override;
    HostResult GetAttribute(std::int32_t index, HostElement** attribute) override;
    HostResult GetAttributeCount(std::int32_t* count) override;
    HostResult ClearAttributes() override;
    HostResult GetName(std::wstring* name) override;
    HostResult GetText(std::wstring* text) override;

  private:
    ~SetupElement() override;

    std::size_t depth() const;
    std::size_t height() const;
    bool isBelow(const SetupElement* other) const;
    CountedRef<SetupElement> copied() const;
    HostResult append(List& list, HostElement* element);
    static void takeOut(List& list, HostElement* element);
    static void clear(List& list);

    Content content;
    SetupElement* parent = nullptr;
};

}  // namespace station
