#include "station/toolkit/model/component.h"

#include <fmt/format.h>

#include <algorithm>

#include "core/exception_registry.h"
#include "station/runtime/runtime_exports.h"

namespace station {

using Kestrova::Tessel::IEventHandler;
namespace Core = Kestrova::RT::Core;

HostResult failToolkit(std::uint32_t code, const std::string& text) {
    CountedRef<RuntimeString> message;
    CountedRef<RuntimeErrorInfo> info;
    if (createString(text.c_str(), message.out()) >= 0 && createErrorInfo(info.out()) >= 0 &&
        info->setMessage(message.get()) >= 0) {
        kvRtSetErrorInfo(info.get());
    }
    return hostResult(code);
}

CountedRef<RuntimeString> makeText(const std::string& text) {
    CountedRef<RuntimeString> string;
    if (createString(text.c_str(), string.out()) < 0) {
        throw std::bad_alloc();
    }
    return string;
}

std::string textOf(RuntimeString* string) {
    const char* text = nullptr;
    if (string == nullptr || string->getText(&text) < 0 || text == nullptr) {
        return {};
    }
    return text;
}

std::string HandlerFailure::text() const {
    std::string reason;
    try {
        Core::raiseFromCode(static_cast<std::uint32_t>(code), "");
    } catch (const std::exception& meaning) {
        reason = meaning.what();
    }
    return fmt::format("\"{}\", {}: the plug-in failed with 0x{:08X}{}{}", component, event,
                       static_cast<std::uint32_t>(code), reason.empty() ? "" : ", ", reason);
}

EventSlots::Handlers& EventSlots::check(std::int32_t slot, const IEventHandler* handler) {
    if (handler == nullptr) {
        throw Core::ArgumentNullException();
    }
    return const_cast<Handlers&>(at(slot));
}

const EventSlots::Handlers& EventSlots::at(std::int32_t slot) const {
    if (slot < 1 || static_cast<std::size_t>(slot) > slots.size()) {
        throw Core::OutOfRangeException(
            fmt::format("there is no event slot {}, there are {}", slot, slots.size()));
    }
    return slots[static_cast<std::size_t>(slot - 1)];
}

void EventSlots::subscribe(std::int32_t slot, IEventHandler* handler) {
    check(slot, handler).emplace_back(handler);
}

void EventSlots::unsubscribe(std::int32_t slot, IEventHandler* handler) {
    Handlers& handlers = check(slot, handler);
    const auto found = std::find_if(handlers.begin(), handlers.end(), [&](const auto& one) {
        HostBool equal = hostFalse;
        return one->equals(handler, &equal) >= 0 && isTrue(equal);
    });
    if (found == handlers.end()) {
        throw Core::NotFoundException("this handler isn't subscribed");
    }
    handlers.erase(found);
}

void EventSlots::clear() {
    // A handler that goes may look at the slots.
    std::vector<Handlers> gone(slots.size());
    slots.swap(gone);
}

}  // namespace station
