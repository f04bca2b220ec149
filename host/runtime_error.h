#pragma once

#include <string>

#include "core/exception_registry.h"
#include "host/counted_ref.h"
#include "host/runtime.h"

namespace Kestrova::RT::Core {

/// Returns if the result of a call of the window toolkit or its runtime isn't negative; that is
/// all that a good call costs. Otherwise throws the exception of that code, with the text of the
/// calling thread's error object, which is cleared; without one, with the default text.
inline void checkErrorInfo(RuntimeLibrary& runtime, HostResult result) {
    if (result >= 0) {
        return;
    }
    std::string message;
    CountedRef<RuntimeErrorInfo> info;
    if (runtime.kvRtGetErrorInfo(info.out()) >= 0 && info) {
        CountedRef<RuntimeString> string;
        const char* text = nullptr;
        if (info->getMessage(string.out()) >= 0 && string && string->getText(&text) >= 0 &&
            text != nullptr) {
            message = text;
        }
        info.reset();
        runtime.kvRtClearErrorInfo();
    }
    raiseFromCode(static_cast<std::uint32_t>(result), message);
}

}  // namespace Kestrova::RT::Core
