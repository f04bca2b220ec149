#pragma once

#include "host/host_document.h"
#include "tests/support/scripted_object.h"

/// An element of a scripted document. A test may build and read the tree through the fields, behind
/// the list of calls. Values are kept per element and beside its children. To copy and to clear
/// is only listed: the plug-in does neither.
class ScriptedElement final : public Scripted<HostElement> {
    using Elements = std::vector<ScriptedElement*>;

  public:
    explicit ScriptedElement(CallScript& callScript, std::wstring nameOfElement,
                             std::wstring textOfElement = L"")
        : Scripted(callScript), name(std::move(nameOfElement)), text(std::move(textOfElement)) {}

    SCRIPTED_WRITER(SetText, const wchar_t*, text)
    HostResult AddChild(HostElement* child) override { return append("AddChild", children, child); }
    HostResult RemoveChild(HostElement* child) override {
        const HostResult code = call("RemoveChild", child);
        const auto place = std::find(children.begin(), children.end(), child);
        if (code >= 0 && place != children.end()) {
            (*place)->parent = nullptr;
            children.erase(place);
        }
        return code;
    }
    SCRIPTED_CALL(ClearChildren)
    HostResult FindChild(const wchar_t* wanted, HostElement** child) override {
        const auto search = [&] { return firstOf(children, orEmpty(wanted)); };
        return hand("FindChild", child, search, wanted);
    }
    HostResult GetChild(std::int32_t index, HostElement** child) override {
        const auto search = [&] { return elementAt(children, index); };
        return hand("GetChild", child, search, index);
    }
    SCRIPTED_COUNT(GetChildCount, children)
    SCRIPTED_OBJECT(Clone, HostElement, nullptr)
    SCRIPTED_OBJECT(GetParent, HostElement, parent)
    HostResult AddAttribute(HostElement* attribute) override {
        return append("AddAttribute", attributes, attribute);
    }
    SCRIPTED_TAKE(RemoveAttribute, HostElement*)
    HostResult FindAttribute(const wchar_t* wanted, HostElement** attribute) override {
        const auto search = [&] { return firstOf(attributes, orEmpty(wanted)); };
        return hand("FindAttribute", attribute, search, wanted);
    }
    HostResult GetAttribute(std::int32_t index, HostElement** attribute) override {
        const auto search = [&] { return elementAt(attributes, index); };
        return hand("GetAttribute", attribute, search, index);
    }
    SCRIPTED_COUNT(GetAttributeCount, attributes)
    SCRIPTED_CALL(ClearAttributes)
    SCRIPTED_READER(GetName, std::wstring, name)
    SCRIPTED_READER(GetText, std::wstring, text)

    /// Appends a new child, or attribute, and returns it.
    ScriptedElement& addNew(const std::wstring& nameOfChild,
                            const std::wstring& textOfChild = L"") {
        return addTo(children, nameOfChild, textOfChild);
    }
    ScriptedElement& addNewAttribute(const std::wstring& nameOfAttribute,
                                     const std::wstring& textOfAttribute) {
        return addTo(attributes, nameOfAttribute, textOfAttribute);
    }
    /// The first child of that name, or null.
    ScriptedElement* find(const std::wstring& wanted) const { return firstOf(children, wanted); }
    auto findValue(const std::wstring& key) {
        return std::find_if(values.begin(), values.end(),
                            [&](const auto& entry) { return entry.first == key; });
    }
    /// The element with all that is in it, a line each, children indented by two:
    /// `Name "text" @Attribute="text" Key="value"`.
    std::string asText(const std::string& indent = "") const {
        const auto utf8 = [](const std::wstring& wide) {
            return Kestrova::Utils::Kcom::StringHelper::ToUtf8(wide);
        };
        std::string line = indent + utf8(name) + (text.empty() ? "" : " \"" + utf8(text) + '"');
        for (const ScriptedElement* attribute : attributes) {
            line += " @" + utf8(attribute->name) + "=\"" + utf8(attribute->text) + '"';
        }
        for (const auto& [key, value] : values) {
            line += ' ' + utf8(key) + "=\"" + utf8(value) + '"';
        }
        line += '\n';
        for (const ScriptedElement* child : children) {
            line += child->asText(indent + "  ");
        }
        return line;
    }

    std::wstring name;
    std::wstring text;
    std::vector<std::pair<std::wstring, std::wstring>> values;
    Elements attributes;
    Elements children;
    ScriptedElement* parent = nullptr;

  private:
    static ScriptedElement* firstOf(const Elements& list, const std::wstring& wanted) {
        const auto place = std::find_if(list.begin(), list.end(),
                                        [&](const auto* each) { return each->name == wanted; });
        return place == list.end() ? nullptr : *place;
    }
    ScriptedElement& addTo(Elements& list, const std::wstring& newName,
                           const std::wstring& newText) {
        list.push_back(&script.make<ScriptedElement>(newName, newText));
        list.back()->parent = this;
        return *list.back();
    }
    HostResult append(const char* operation, Elements& list, HostElement* element) {
        const HostResult code = call(operation, element);
        auto* const added = dynamic_cast<ScriptedElement*>(element);
        if (code < 0 || added == nullptr) {
            return code < 0 ? code : HostCode::invalidPointer;
        }
        if (added->parent != nullptr || added == this) {
            return HostCode::invalidArgument;
        }
        added->parent = this;
        list.push_back(added);
        return code;
    }
};

class ScriptedDocument final : public Scripted<HostDocument> {
  public:
    explicit ScriptedDocument(CallScript& callScript, bool forWriting)
        : Scripted(callScript), mode(forWriting ? modeWriting : 0) {}

    SCRIPTED_OBJECT(GetRootElement, HostElement, root)
    HostResult SetRootElement(HostElement* element) override {
        const HostResult code = call("SetRootElement", element);
        if (code >= 0) {
            root = dynamic_cast<ScriptedElement*>(element);
        }
        return code;
    }
    HostResult CreateElement(const wchar_t* name, const wchar_t* text, HostElement** out) override {
        const auto create = [&] {
            return &script.make<ScriptedElement>(orEmpty(name), orEmpty(text));
        };
        return hand("CreateElement", out, create, name, text);
    }
    HostResult WriteValue(HostElement* element, const wchar_t* key, const wchar_t* value,
                          const wchar_t* defaultValue) override {
        const HostResult code = call("WriteValue", element, key, value, defaultValue);
        auto* const place = dynamic_cast<ScriptedElement*>(element);
        if (code < 0 || place == nullptr) {
            return code < 0 ? code : HostCode::invalidPointer;
        }
        if (const auto old = place->findValue(orEmpty(key)); old != place->values.end()) {
            place->values.erase(old);
        }
        if (orEmpty(value) != orEmpty(defaultValue)) {
            place->values.emplace_back(orEmpty(key), orEmpty(value));
        }
        return code;
    }
    HostResult ReadValue(HostElement* element, const wchar_t* key, std::wstring* value,
                         const wchar_t* defaultValue) override {
        const HostResult code = call("ReadValue", element, key, defaultValue);
        auto* const place = dynamic_cast<ScriptedElement*>(element);
        if (code < 0 || place == nullptr) {
            return code < 0 ? code : HostCode::invalidPointer;
        }
        const auto found = place->findValue(orEmpty(key));
        *value = found == place->values.end() ? orEmpty(defaultValue) : found->second;
        return code;
    }
    SCRIPTED_READER(GetMode, std::int32_t, mode)
    HostResult SetMode(HostBool writing) override {
        const HostResult code = call("SetMode", writing);
        if (code >= 0) {
            mode = isTrue(writing) ? modeWriting : 0;
        }
        return code;
    }

    ScriptedElement* root = nullptr;
    std::int32_t mode;
};

class ScriptedDocumentFactory final : public Scripted<HostDocumentFactory> {
  public:
    using Scripted::Scripted;

    HostResult createDocument(HostBool writing, HostDocument** document) override {
        const auto create = [&] { return &script.make<ScriptedDocument>(isTrue(writing)); };
        return hand("createDocument", document, create, writing);
    }
};
