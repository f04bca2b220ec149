#include "station/document/setup_element.h"

#include <algorithm>

#include "station/document/setup_text.h"

namespace station {
namespace {

HostResult handFirst(const SetupElement::List& list, const wchar_t* name, HostElement** result) {
    return guarded([&] {
        const auto found =
            std::find_if(list.begin(), list.end(), [wanted = textOf(name)](const auto& element) {
                return element->getContent().name == wanted;
            });
        return handOver(found == list.end() ? CountedRef<SetupElement>() : *found, result);
    });
}

HostResult handAt(const SetupElement::List& list, std::int32_t index, HostElement** result) {
    const bool inside = index >= 0 && index < std::ssize(list);
    return handOver(inside ? list[static_cast<std::size_t>(index)] : CountedRef<SetupElement>(),
                    result);
}

HostResult giveCount(const SetupElement::List& list, std::int32_t* count) {
    *count = static_cast<std::int32_t>(list.size());
    return HostCode::success;
}

template <typename Values>
auto findKey(Values& values, const std::wstring& key) {
    return std::find_if(values.begin(), values.end(),
                        [&](const auto& value) { return value.key == key; });
}

}  // namespace

SetupElement::SetupElement(std::wstring name, std::wstring text)
    : content{std::move(name), std::move(text), {}, {}, {}} {}

SetupElement::~SetupElement() {
    clear(content.attributes);
    clear(content.children);
}

void SetupElement::setValue(const std::wstring& key, const std::wstring& text) {
    const auto found = findKey(content.values, key);
    if (found == content.values.end()) {
        content.values.push_back({key, text});
    } else {
        found->text = text;
    }
}

void SetupElement::dropValue(const std::wstring& key) {
    const auto found = findKey(content.values, key);
    if (found != content.values.end()) {
        content.values.erase(found);
    }
}

const std::wstring* SetupElement::findValue(const std::wstring& key) const {
    const auto found = findKey(content.values, key);
    return found == content.values.end() ? nullptr : &found->text;
}

std::size_t SetupElement::depth() const {
    return parent == nullptr ? 1 : parent->depth() + 1;
}

std::size_t SetupElement::height() const {
    std::size_t below = 0;
    for (const List* list : {&content.attributes, &content.children}) {
        for (const auto& element : *list) {
            below = std::max(below, element->height());
        }
    }
    return below + 1;
}

bool SetupElement::isBelow(const SetupElement* other) const {
    return this == other || (parent != nullptr && parent->isBelow(other));
}

CountedRef<SetupElement> SetupElement::copied() const {
    auto copy = makeObject<SetupElement>(content.name, content.text);
    copy->content.values = content.values;
    for (const auto list : {&Content::attributes, &Content::children}) {
        for (const auto& element : content.*list) {
            (copy->content.*list).push_back(element->copied());
            (copy->content.*list).back()->parent = copy.get();
        }
    }
    return copy;
}

HostResult SetupElement::append(List& list, HostElement* element) {
    auto* const added = dynamic_cast<SetupElement*>(element);
    if (added == nullptr) {
        return fail(HostCode::invalidPointer, "there is no element to add");
    }
    if (added->parent != nullptr || isBelow(added)) {
        return fail(HostCode::invalidArgument, "the element hangs in a tree already");
    }
    if (depth() + added->height() > maxDepth) {
        return fail(HostCode::invalidArgument,
                    "a setup document is at most " + std::to_string(maxDepth) + " elements deep");
    }
    return guarded([&] {
        list.emplace_back(added);
        added->parent = this;
        return HostCode::success;
    });
}

void SetupElement::takeOut(List& list, HostElement* element) {
    const auto found = std::find_if(list.begin(), list.end(),
                                    [&](const auto& each) { return each.get() == element; });
    if (found != list.end()) {
        (*found)->parent = nullptr;
        list.erase(found);
    }
}

void SetupElement::clear(List& list) {
    for (const auto& element : list) {
        element->parent = nullptr;
    }
    list.clear();
}

HostResult SetupElement::SetText(const wchar_t* text) {
    return guarded([&] {
        content.text = textOf(text);
        return HostCode::success;
    });
}

HostResult SetupElement::AddChild(HostElement* child) {
    return append(content.children, child);
}

HostResult SetupElement::RemoveChild(HostElement* child) {
    takeOut(content.children, child);
    return HostCode::success;
}

HostResult SetupElement::ClearChildren() {
    clear(content.children);
    return HostCode::success;
}

HostResult SetupElement::FindChild(const wchar_t* name, HostElement** child) {
    return handFirst(content.children, name, child);
}

HostResult SetupElement::GetChild(std::int32_t index, HostElement** child) {
    return handAt(content.children, index, child);
}

HostResult SetupElement::GetChildCount(std::int32_t* count) {
    return giveCount(content.children, count);
}

HostResult SetupElement::Clone(HostElement** copy) {
    return guarded([&] { return handOver(copied(), copy); });
}

HostResult SetupElement::GetParent(HostElement** result) {
    return handOver(CountedRef<SetupElement>(parent), result);
}

HostResult SetupElement::AddAttribute(HostElement* attribute) {
    return append(content.attributes, attribute);
}

HostResult SetupElement::RemoveAttribute(HostElement* attribute) {
    takeOut(content.attributes, attribute);
    return HostCode::success;
}

HostResult SetupElement::FindAttribute(const wchar_t* name, HostElement** attribute) {
    return handFirst(content.attributes, name, attribute);
}

HostResult SetupElement::GetAttribute(std::int32_t index, HostElement** attribute) {
    return handAt(content.attributes, index, attribute);
}

HostResult SetupElement::GetAttributeCount(std::int32_t* count) {
    return giveCount(content.attributes, count);
}

HostResult SetupElement::ClearAttributes() {
    clear(content.attributes);
    return HostCode::success;
}

HostResult SetupElement::GetName(std::wstring* name) {
    return guarded([&] {
        *name = content.name;
        return HostCode::success;
    });
}

HostResult SetupElement::GetText(std::wstring* text) {
    return guarded([&] {
        *text = content.text;
        return HostCode::success;
    });
}

}  // namespace station
