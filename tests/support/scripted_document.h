#pragma once

#include "host/host_document.h"
#include "tests/support/scripted_object.h"

/// An element of a scripted document. A test may build and read the tree through the fields, behind
/// the list of calls. Values are kept per element and beside its children. What the plug-in never
/// does is only listed: to copy, to clear, to take an attribute out and to ask for the parent.
class ScriptedElement final : public Scripted<HostElement> {
    using Elements = std::vector<ScriptedElement*>;

  public:
    explicit ScriptedElement(CallScript& callScript, std::wstring nameOfElement,
                             std::wstring textOfElement = L"")
        : Scripted(callScript), name(std::move(nameOfElement)), text(std::move(textOfElement)) {}

    SCRIPTED_WRITER(SetText, const wchar_t*, text)
    HostResult AddChild(HostElement* child) override { return append("AddChild", children, child); }
    HostResult RemoveChild(HostElement* child) override {
        return act({"RemoveChild", child}, [&] { std::erase(children, child); });
    }
    SCRIPTED_CALL(ClearChildren)
    HostResult FindChild(const wchar_t* wanted, HostElement** child) override {
        return hand({"FindChild", wanted}, child,
                    [&] { return firstOf(children, orEmpty(wanted)); });
    }
    HostResult GetChild(std::int32_t index, HostElement** child) override {
        return hand({"GetChild", index}, child, [&] { return elementAt(children, index); });
    }
    SCRIPTED_COUNT(GetChildCount, children)
    SCRIPTED_OBJECT(Clone, HostElement, nullptr)
    SCRIPTED_OBJECT(GetParent, HostElement, nullptr)
    HostResult AddAttribute(HostElement* attribute) override {
        return append("AddAttribute", attributes, attribute);
    }
    SCRIPTED_TAKE(RemoveAttribute, HostElement*)
    HostResult FindAttribute(const wchar_t* wanted, HostElement** attribute) override {
        return hand({"FindAttribute", wanted}, attribute,
                    [&] { return firstOf(attributes, orEmpty(wanted)); });
    }
    HostResult GetAttribute(std::int32_t index, HostElement** attribute) override {
        return hand({"GetAttribute", index}, attribute,
                    [&] { return elementAt(attributes, index); });
    }
    SCRIPTED_COUNT(GetAttributeCount, attributes)
    SCRIPTED_CALL(ClearAttributes)
    SCRIPTED_READER(GetName, std::wstring, name)
    SCRIPTED_READER(GetText, std::wstring, text)

    /// Appends a new child, or attribute, and returns it.
    ScriptedElement& addNew(const std::wstring& nameOfChild,
                            const std::wstring& textOfChild = L"") {
        return *children.emplace_back(&script.make<ScriptedElement>(nameOfChild, textOfChild));
    }
    ScriptedElement& addNewAttribute(const std::wstring& nameOfAttribute,
                                     const std::wstring& textOfAttribute) {
        return *attributes.emplace_back(
            &script.make<ScriptedElement>(nameOfAttribute, textOfAttribute));
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

  private:
    static ScriptedElement* firstOf(const Elements& list, const std::wstring& wanted) {
        const auto place = std::find_if(list.begin(), list.end(),
                                        [&](const auto* each) { return each->name == wanted; });
        return place == list.end() ? nullptr : *place;
    }
    HostResult append(const char* operation, Elements& list, HostElement* element) {
        auto& added = dynamic_cast<ScriptedElement&>(*element);
        return act({operation, element}, [&] { list.push_back(&added); });
    }
};

class ScriptedDocument final : public Scripted<HostDocument> {
  public:
    explicit ScriptedDocument(CallScript& callScript, bool forWriting,
                              const std::wstring& rootName = L"")
        : Scripted(callScript),
          root(rootName.empty() ? nullptr : &script.make<ScriptedElement>(rootName)),
          mode(forWriting ? modeWriting : 0) {}

    SCRIPTED_OBJECT(GetRootElement, HostElement, root)
    HostResult SetRootElement(HostElement* element) override {
        return set("SetRootElement", root, dynamic_cast<ScriptedElement*>(element));
    }
    HostResult CreateElement(const wchar_t* name, const wchar_t* text, HostElement** out) override {
        return hand({"CreateElement", name, text}, out,
                    [&] { return &script.make<ScriptedElement>(orEmpty(name), orEmpty(text)); });
    }
    HostResult WriteValue(HostElement* element, const wchar_t* key, const wchar_t* value,
                          const wchar_t* defaultValue) override {
        auto& values = dynamic_cast<ScriptedElement&>(*element).values;
        return act({"WriteValue", element, key, value, defaultValue}, [&] {
            std::erase_if(values, [&](const auto& entry) { return entry.first == orEmpty(key); });
            if (orEmpty(value) != orEmpty(defaultValue)) {
                values.emplace_back(orEmpty(key), orEmpty(value));
            }
        });
    }
    HostResult ReadValue(HostElement* element, const wchar_t* key, std::wstring* value,
                         const wchar_t* defaultValue) override {
        auto& place = dynamic_cast<ScriptedElement&>(*element);
        const auto found = place.findValue(orEmpty(key));
        return get({"ReadValue", element, key, defaultValue}, value,
                   found == place.values.end() ? orEmpty(defaultValue) : found->second);
    }
    SCRIPTED_READER(GetMode, std::int32_t, mode)
    HostResult SetMode(HostBool writing) override {
        return act({"SetMode", writing}, [&] { mode = isTrue(writing) ? modeWriting : 0; });
    }

    ScriptedElement* root;
    std::int32_t mode;
};

class ScriptedDocumentFactory final : public Scripted<HostDocumentFactory> {
  public:
    using Scripted::Scripted;

    HostResult createDocument(HostBool writing, HostDocument** document) override {
        return hand({"createDocument", writing}, document,
                    [&] { return &script.make<ScriptedDocument>(isTrue(writing)); });
    }
};
