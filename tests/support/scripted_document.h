#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/host_document.h"
#include "tests/support/scripted_object.h"

/// An element of a scripted document. A test may build and read the tree through the fields, behind
/// the list of calls. Values are kept per element and beside its children.
class ScriptedElement final : public Scripted<HostElement> {
  public:
    explicit ScriptedElement(CallScript& callScript, std::wstring nameOfElement,
                             std::wstring textOfElement = L"")
        : Scripted(callScript, "HostElement"),
          name(std::move(nameOfElement)),
          text(std::move(textOfElement)) {}

    HostResult SetText(const wchar_t* value) override;
    HostResult AddChild(HostElement* child) override;
    HostResult RemoveChild(HostElement* child) override;
    HostResult ClearChildren() override;
    HostResult FindChild(const wchar_t* wanted, HostElement** child) override;
    HostResult GetChild(std::int32_t index, HostElement** child) override;
    HostResult GetChildCount(std::int32_t* number) override;
    HostResult Clone(HostElement** copy) override;
    HostResult GetParent(HostElement** out) override;
    HostResult AddAttribute(HostElement* attribute) override;
    HostResult RemoveAttribute(HostElement* attribute) override;
    HostResult FindAttribute(const wchar_t* wanted, HostElement** attribute) override;
    HostResult GetAttribute(std::int32_t index, HostElement** attribute) override;
    HostResult GetAttributeCount(std::int32_t* number) override;
    HostResult ClearAttributes() override;
    HostResult GetName(std::wstring* value) override;
    HostResult GetText(std::wstring* value) override;

    /// Appends a new child, or attribute, and returns it.
    ScriptedElement& addNew(const std::wstring& nameOfChild, const std::wstring& textOfChild = L"");
    ScriptedElement& addNewAttribute(const std::wstring& nameOfAttribute,
                                     const std::wstring& textOfAttribute);
    /// The first child of that name, or null.
    ScriptedElement* find(const std::wstring& wanted) const;
    /// The value of the key; throws `std::out_of_range` if there is none.
    std::wstring valueOf(const std::wstring& key) const;
    /// The element with all that is in it, a line each, children indented by two:
    /// `Name "text" @Attribute="text" Key="value"`.
    std::string asText(std::size_t indent = 0) const;

    std::wstring name;
    std::wstring text;
    std::vector<std::pair<std::wstring, std::wstring>> values;
    std::vector<ScriptedElement*> attributes;
    std::vector<ScriptedElement*> children;
    ScriptedElement* parent = nullptr;

  private:
    using Elements = std::vector<ScriptedElement*>;
    HostResult append(const char* operation, Elements& list, HostElement* element);
    HostResult remove(const char* operation, Elements& list, HostElement* element);
    HostResult clear(const char* operation, Elements& list);
    ScriptedElement& deepCopy() const;
};

class ScriptedDocument final : public Scripted<HostDocument> {
  public:
    explicit ScriptedDocument(CallScript& callScript, bool forWriting)
        : Scripted(callScript, "HostDocument"), mode(forWriting ? modeWriting : 0) {}

    HostResult GetRootElement(HostElement** out) override;
    HostResult SetRootElement(HostElement* element) override;
    HostResult CreateElement(const wchar_t* name, const wchar_t* text, HostElement** out) override;
    HostResult WriteValue(HostElement* element, const wchar_t* key, const wchar_t* value,
                          const wchar_t* defaultValue) override;
    HostResult ReadValue(HostElement* element, const wchar_t* key, std::wstring* value,
                         const wchar_t* defaultValue) override;
    HostResult GetMode(std::int32_t* value) override;
    HostResult SetMode(HostBool writing) override;

    ScriptedElement* root = nullptr;
    std::int32_t mode;
    bool keepsDefaults = false;  ///< `WriteValue` writes a value that equals its default
    bool forgetsToRead = false;  ///< `ReadValue` leaves the text that it was given
};

class ScriptedDocumentFactory final : public Scripted<HostDocumentFactory> {
  public:
    explicit ScriptedDocumentFactory(CallScript& callScript)
        : Scripted(callScript, "HostDocumentFactory") {}

    HostResult createDocument(HostBool writing, HostDocument** document) override;

    std::vector<ScriptedDocument*> made;
};
