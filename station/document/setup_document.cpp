#include "station/document/setup_document.h"

#include <algorithm>

namespace station {
namespace {

HostResult failForeign() {
    return fail(HostCode::invalidPointer, "there is no element of this station's documents");
}

}  // namespace

SetupElement::SetupElement(std::wstring name, std::wstring text)
    : content{std::move(name), std::move(text), {}, {}, {}} {}

SetupElement::~SetupElement() {
    clear(content.attributes);
    clear(content.children);
}

void SetupElement::setValue(const std::wstring& key, const std::wstring& text,
                            std::size_t fileLine) {
    const auto [place, isNew] = places.try_emplace(key, content.values.size());
    if (isNew) {
        content.values.push_back({key, text, fileLine});
    } else {
        content.values[place->second].text = text;
    }
}

void SetupElement::dropValue(const std::wstring& key) {
    const auto found = places.find(key);
    if (found == places.end()) {
        return;
    }
    const std::size_t dropped = found->second;
    content.values.erase(content.values.begin() + static_cast<std::ptrdiff_t>(dropped));
    places.erase(found);
    for (auto& [other, place] : places) {
        place -= place > dropped ? 1 : 0;
    }
}

const std::wstring* SetupElement::findValue(const std::wstring& key) const {
    const auto found = places.find(key);
    return found == places.end() ? nullptr : &content.values[found->second].text;
}

std::size_t SetupElement::getDepth() const {
    return parent == nullptr ? 1 : parent->getDepth() + 1;
}

std::size_t SetupElement::getHeight() const {
    std::size_t below = 0;
    for (const List* list : {&content.attributes, &content.children}) {
        for (const auto& element : *list) {
            below = std::max(below, element->getHeight());
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
    copy->places = places;
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
    if (getDepth() + added->getHeight() > maxDepth) {
        return fail(HostCode::invalidArgument,
                    "a setup document is at most " + std::to_string(maxDepth) + " elements deep");
    }
    return guarded([&] {
        list.emplace_back(added);
        added->parent = this;
        return HostCode::success;
    });
}

HostResult SetupElement::takeOut(List& list, HostElement* element) {
    const auto found = std::find_if(list.begin(), list.end(),
                                    [&](const auto& each) { return each.get() == element; });
    if (found != list.end()) {
        (*found)->parent = nullptr;
        list.erase(found);
    }
    return HostCode::success;
}

HostResult SetupElement::clear(List& list) {
    for (const auto& element : list) {
        element->parent = nullptr;
    }
    list.clear();
    return HostCode::success;
}

HostResult SetupElement::handFirst(const List& list, const wchar_t* name, HostElement** result) {
    return guarded([&] {
        const auto found =
            std::find_if(list.begin(), list.end(), [wanted = textOf(name)](const auto& element) {
                return element->getContent().name == wanted;
            });
        return handOver(found == list.end() ? CountedRef<SetupElement>() : *found, result);
    });
}

HostResult SetupElement::handAt(const List& list, std::int32_t index, HostElement** result) {
    const bool inside = index >= 0 && index < std::ssize(list);
    return handOver(inside ? list[static_cast<std::size_t>(index)] : CountedRef<SetupElement>(),
                    result);
}

HostResult SetupDocument::SetRootElement(HostElement* element) {
    auto* const own = dynamic_cast<SetupElement*>(element);
    if (element != nullptr && own == nullptr) {
        return failForeign();
    }
    if (own != nullptr && own->isInTree()) {
        return fail(HostCode::invalidArgument, "the element hangs in a tree already");
    }
    root = CountedRef<SetupElement>(own);
    return HostCode::success;
}

HostResult SetupDocument::CreateElement(const wchar_t* name, const wchar_t* text,
                                        HostElement** element) {
    return guarded(
        [&] { return handOver(makeObject<SetupElement>(textOf(name), textOf(text)), element); });
}

HostResult SetupDocument::WriteValue(HostElement* element, const wchar_t* key, const wchar_t* value,
                                     const wchar_t* defaultValue) {
    auto* const own = dynamic_cast<SetupElement*>(element);
    if (own == nullptr) {
        return failForeign();
    }
    return guarded([&] {
        if (const std::wstring text = textOf(value); text != textOf(defaultValue)) {
            own->setValue(textOf(key), text);
        } else {
            own->dropValue(textOf(key));
        }
        return HostCode::success;
    });
}

HostResult SetupDocument::ReadValue(HostElement* element, const wchar_t* key, std::wstring* value,
                                    const wchar_t* defaultValue) {
    const auto* const own = dynamic_cast<const SetupElement*>(element);
    if (own == nullptr) {
        return failForeign();
    }
    return guarded([&] {
        const std::wstring* const kept = own->findValue(textOf(key));
        *value = kept == nullptr ? textOf(defaultValue) : *kept;
        return HostCode::success;
    });
}

HostResult SetupDocumentFactory::createDocument(HostBool writing, HostDocument** document) {
    return guarded([&] { return handOver(makeObject<SetupDocument>(isTrue(writing)), document); });
}

}  // namespace station
