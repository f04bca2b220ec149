#include "station/document/setup_document.h"

#include "station/document/setup_text.h"

namespace station {
namespace {

HostResult failForeign() {
    return fail(HostCode::invalidPointer, "there is no element of this station's documents");
}

}  // namespace

HostResult SetupDocument::GetRootElement(HostElement** result) {
    return handOver(root, result);
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
    return guarded([&] {
        return handOver(makeObject<SetupElement>(textOf(name), textOf(text)), element);
    });
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

HostResult SetupDocument::GetMode(std::int32_t* mode) {
    *mode = writing ? modeWriting : 0;
    return HostCode::success;
}

HostResult SetupDocument::SetMode(HostBool forWriting) {
    writing = isTrue(forWriting);
    return HostCode::success;
}

HostResult SetupDocumentFactory::createDocument(HostBool writing, HostDocument** document) {
    return guarded([&] { return handOver(makeObject<SetupDocument>(isTrue(writing)), document); });
}

}  // namespace station
