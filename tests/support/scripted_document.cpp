#include "tests/support/scripted_document.h"

#include <algorithm>
#include <stdexcept>

namespace {

using Kestrova::Utils::Kcom::StringHelper;

std::wstring orEmpty(const wchar_t* text) {
    return text == nullptr ? L"" : text;
}

std::string quoted(const std::wstring& text) {
    return '"' + StringHelper::ToUtf8(text) + '"';
}

ScriptedElement* firstOf(const std::vector<ScriptedElement*>& list, const std::wstring& name) {
    const auto place = std::find_if(list.begin(), list.end(),
                                    [&](const auto* each) { return each->name == name; });
    return place == list.end() ? nullptr : *place;
}

ScriptedElement* at(const std::vector<ScriptedElement*>& list, std::int32_t index) {
    const bool inside = index >= 0 && static_cast<std::size_t>(index) < list.size();
    return inside ? list[static_cast<std::size_t>(index)] : nullptr;
}

template <typename Values>
auto findValue(Values& values, const std::wstring& key) {
    return std::find_if(values.begin(), values.end(),
                        [&](const auto& entry) { return entry.first == key; });
}

}  // namespace

HostResult ScriptedElement::SetText(const wchar_t* value) {
    return set("HostElement::SetText", text, value);
}

HostResult ScriptedElement::AddChild(HostElement* child) {
    return append("HostElement::AddChild", children, child);
}

HostResult ScriptedElement::RemoveChild(HostElement* child) {
    return remove("HostElement::RemoveChild", children, child);
}

HostResult ScriptedElement::ClearChildren() {
    return clear("HostElement::ClearChildren", children);
}

HostResult ScriptedElement::FindChild(const wchar_t* wanted, HostElement** child) {
    const auto search = [&] { return firstOf(children, orEmpty(wanted)); };
    return hand("HostElement::FindChild", child, search, wanted);
}

HostResult ScriptedElement::GetChild(std::int32_t index, HostElement** child) {
    return hand(
        "HostElement::GetChild", child, [&] { return at(children, index); }, index);
}

HostResult ScriptedElement::GetChildCount(std::int32_t* number) {
    return get("HostElement::GetChildCount", number, static_cast<std::int32_t>(children.size()));
}

HostResult ScriptedElement::Clone(HostElement** copy) {
    return hand("HostElement::Clone", copy, [&] { return &deepCopy(); });
}

HostResult ScriptedElement::GetParent(HostElement** out) {
    return hand("HostElement::GetParent", out, [&] { return parent; });
}

HostResult ScriptedElement::AddAttribute(HostElement* attribute) {
    return append("HostElement::AddAttribute", attributes, attribute);
}

HostResult ScriptedElement::RemoveAttribute(HostElement* attribute) {
    return remove("HostElement::RemoveAttribute", attributes, attribute);
}

HostResult ScriptedElement::FindAttribute(const wchar_t* wanted, HostElement** attribute) {
    const auto search = [&] { return firstOf(attributes, orEmpty(wanted)); };
    return hand("HostElement::FindAttribute", attribute, search, wanted);
}

HostResult ScriptedElement::GetAttribute(std::int32_t index, HostElement** attribute) {
    const auto search = [&] { return at(attributes, index); };
    return hand("HostElement::GetAttribute", attribute, search, index);
}

HostResult ScriptedElement::GetAttributeCount(std::int32_t* number) {
    return get("HostElement::GetAttributeCount", number,
               static_cast<std::int32_t>(attributes.size()));
}

HostResult ScriptedElement::ClearAttributes() {
    return clear("HostElement::ClearAttributes", attributes);
}

HostResult ScriptedElement::GetName(std::wstring* value) {
    return get("HostElement::GetName", value, name);
}

HostResult ScriptedElement::GetText(std::wstring* value) {
    return get("HostElement::GetText", value, text);
}

HostResult ScriptedElement::append(const char* operation, Elements& list, HostElement* element) {
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

HostResult ScriptedElement::remove(const char* operation, Elements& list, HostElement* element) {
    const HostResult code = call(operation, element);
    auto* const removed = dynamic_cast<ScriptedElement*>(element);
    const auto place = std::find(list.begin(), list.end(), removed);
    if (code >= 0 && place != list.end()) {
        removed->parent = nullptr;
        list.erase(place);
    }
    return code;
}

HostResult ScriptedElement::clear(const char* operation, Elements& list) {
    const HostResult code = call(operation);
    if (code >= 0) {
        for (ScriptedElement* element : list) {
            element->parent = nullptr;
        }
        list.clear();
    }
    return code;
}

ScriptedElement& ScriptedElement::addNew(const std::wstring& nameOfChild,
                                         const std::wstring& textOfChild) {
    children.push_back(&script.make<ScriptedElement>(nameOfChild, textOfChild));
    children.back()->parent = this;
    return *children.back();
}

ScriptedElement& ScriptedElement::addNewAttribute(const std::wstring& nameOfAttribute,
                                                  const std::wstring& textOfAttribute) {
    attributes.push_back(&script.make<ScriptedElement>(nameOfAttribute, textOfAttribute));
    attributes.back()->parent = this;
    return *attributes.back();
}

ScriptedElement* ScriptedElement::find(const std::wstring& wanted) const {
    return firstOf(children, wanted);
}

std::wstring ScriptedElement::valueOf(const std::wstring& key) const {
    const auto place = findValue(values, key);
    if (place == values.end()) {
        throw std::out_of_range("no value " + quoted(key));
    }
    return place->second;
}

ScriptedElement& ScriptedElement::deepCopy() const {
    auto& copy = script.make<ScriptedElement>(name, text);
    copy.values = values;
    for (const auto list : {&ScriptedElement::attributes, &ScriptedElement::children}) {
        for (const ScriptedElement* element : this->*list) {
            (copy.*list).push_back(&element->deepCopy());
            (copy.*list).back()->parent = &copy;
        }
    }
    return copy;
}

std::string ScriptedElement::asText(std::size_t indent) const {
    std::string line = std::string(indent, ' ') + StringHelper::ToUtf8(name);
    if (!text.empty()) {
        line += ' ' + quoted(text);
    }
    for (const ScriptedElement* attribute : attributes) {
        line += " @" + StringHelper::ToUtf8(attribute->name) + '=' + quoted(attribute->text);
    }
    for (const auto& [key, value] : values) {
        line += ' ' + StringHelper::ToUtf8(key) + '=' + quoted(value);
    }
    line += '\n';
    for (const ScriptedElement* child : children) {
        line += child->asText(indent + 2);
    }
    return line;
}

HostResult ScriptedDocument::GetRootElement(HostElement** out) {
    return hand("HostDocument::GetRootElement", out, [&] { return root; });
}

HostResult ScriptedDocument::SetRootElement(HostElement* element) {
    const HostResult code = call("HostDocument::SetRootElement", element);
    if (code >= 0) {
        root = dynamic_cast<ScriptedElement*>(element);
    }
    return code;
}

HostResult ScriptedDocument::CreateElement(const wchar_t* name, const wchar_t* text,
                                           HostElement** out) {
    const auto create = [&] { return &script.make<ScriptedElement>(orEmpty(name), orEmpty(text)); };
    return hand("HostDocument::CreateElement", out, create, name, text);
}

HostResult ScriptedDocument::WriteValue(HostElement* element, const wchar_t* key,
                                        const wchar_t* value, const wchar_t* defaultValue) {
    const HostResult code = call("HostDocument::WriteValue", element, key, value, defaultValue);
    auto* const place = dynamic_cast<ScriptedElement*>(element);
    if (code < 0 || place == nullptr) {
        return code < 0 ? code : HostCode::invalidPointer;
    }
    const auto old = findValue(place->values, orEmpty(key));
    if (old != place->values.end()) {
        place->values.erase(old);
    }
    if (keepsDefaults || orEmpty(value) != orEmpty(defaultValue)) {
        place->values.emplace_back(orEmpty(key), orEmpty(value));
    }
    return code;
}

HostResult ScriptedDocument::ReadValue(HostElement* element, const wchar_t* key,
                                       std::wstring* value, const wchar_t* defaultValue) {
    const HostResult code = call("HostDocument::ReadValue", element, key, defaultValue);
    const auto* const place = dynamic_cast<ScriptedElement*>(element);
    if (code < 0 || place == nullptr) {
        return code < 0 ? code : HostCode::invalidPointer;
    }
    if (!forgetsToRead) {
        const auto found = findValue(place->values, orEmpty(key));
        *value = found == place->values.end() ? orEmpty(defaultValue) : found->second;
    }
    return code;
}

HostResult ScriptedDocument::GetMode(std::int32_t* value) {
    return get("HostDocument::GetMode", value, mode);
}

HostResult ScriptedDocument::SetMode(HostBool writing) {
    const HostResult code = call("HostDocument::SetMode", writing);
    if (code >= 0) {
        mode = isTrue(writing) ? modeWriting : 0;
    }
    return code;
}

HostResult ScriptedDocumentFactory::createDocument(HostBool writing, HostDocument** document) {
    const auto create = [&] {
        made.push_back(&script.make<ScriptedDocument>(isTrue(writing)));
        return made.back();
    };
    return hand("HostDocumentFactory::createDocument", document, create, writing);
}
