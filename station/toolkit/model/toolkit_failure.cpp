#include "station/toolkit/model/toolkit_failure.h"

#include "station/runtime/runtime_exports.h"

namespace station {

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

}  // namespace station
