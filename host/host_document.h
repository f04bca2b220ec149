#pragma once

#include <cstdint>
#include <string>

#include "host/host_object.h"

/// An element of a setup document: a name, a text, attributes, children, and keyed values that go
/// through the document. An attribute is an element too, with a name and a text.
///
/// An element hangs in one place at most. It keeps its document's tree alive no longer than the
/// document: hold a reference to both. Names need not be unique among children.
class HostElement : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x386EC5B5, 0xBC25, 0x4370, {0x99, 0xE2, 0xB4, 0x7A, 0xF7, 0xF3, 0x79, 0xFE}};

    virtual HostResult SetText(const wchar_t* text) = 0;
    /// Appends the element itself. Null is a failure.
    virtual HostResult AddChild(HostElement* child) = 0;
    virtual HostResult RemoveChild(HostElement* child) = 0;
    virtual HostResult ClearChildren() = 0;
    /// The first child of that name, null if there is none.
    virtual HostResult FindChild(const wchar_t* name, HostElement** child) = 0;
    /// Null from the child count on.
    virtual HostResult GetChild(std::int32_t index, HostElement** child) = 0;
    virtual HostResult GetChildCount(std::int32_t* count) = 0;
    /// A copy with all that is in it, values too, in no tree.
    virtual HostResult Clone(HostElement** copy) = 0;
    /// Null for the root and for what hangs in no tree.
    virtual HostResult GetParent(HostElement** parent) = 0;
    /// Appends the element itself. Null is a failure.
    virtual HostResult AddAttribute(HostElement* attribute) = 0;
    virtual HostResult RemoveAttribute(HostElement* attribute) = 0;
    /// The first attribute of that name, null if there is none.
    virtual HostResult FindAttribute(const wchar_t* name, HostElement** attribute) = 0;
    /// Null from the attribute count on.
    virtual HostResult GetAttribute(std::int32_t index, HostElement** attribute) = 0;
    virtual HostResult GetAttributeCount(std::int32_t* count) = 0;
    virtual HostResult ClearAttributes() = 0;
    virtual HostResult GetName(std::wstring* name) = 0;
    virtual HostResult GetText(std::wstring* text) = 0;

  protected:
    ~HostElement() = default;
};

/// A setup document: a tree of elements and the direction of the work, which the host sets before
/// it hands the document to the plug-in (events 158 and 159).
class HostDocument : public HostObject {
  public:
    static constexpr InterfaceId id{
        0xBDD55FCC, 0x1D1D, 0x4965, {0x84, 0x02, 0x8F, 0xA7, 0x9F, 0xD0, 0xD6, 0xD7}};
    /// What `GetMode` gives for a document that is being written.
    static constexpr std::int32_t modeWriting = 1;

    /// Null in a new document.
    virtual HostResult GetRootElement(HostElement** root) = 0;
    virtual HostResult SetRootElement(HostElement* root) = 0;
    /// A new element of this document in no tree.
    virtual HostResult CreateElement(const wchar_t* name, const wchar_t* text,
                                     HostElement** element) = 0;
    /// Keeps the value under the key in the element. A value equal to its default may be left out.
    virtual HostResult WriteValue(HostElement* element, const wchar_t* key, const wchar_t* value,
                                  const wchar_t* defaultValue) = 0;
    /// Replaces the text in `value` by the value of the key, or by the default if there is none.
    virtual HostResult ReadValue(HostElement* element, const wchar_t* key, std::wstring* value,
                                 const wchar_t* defaultValue) = 0;
    virtual HostResult GetMode(std::int32_t* mode) = 0;
    virtual HostResult SetMode(HostBool writing) = 0;

  protected:
    ~HostDocument() = default;
};

class HostDocumentFactory : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x780D0199, 0xA433, 0x4653, {0x98, 0xE9, 0xA5, 0x13, 0xE2, 0x6C, 0x9C, 0x0F}};

    /// A new document without a root.
    virtual HostResult createDocument(HostBool writing, HostDocument** document) = 0;

  protected:
    ~HostDocumentFactory() = default;
};
