#include "core/kvrt_exception.h"

#include <algorithm>

#include "core/exception_registry.h"

namespace Kestrova::RT::Core {

namespace {

std::string formatted(std::string_view text) {
    std::string message;
    for (std::size_t at = 0; at < text.size() && message.size() < KvrtException::messageLimit;) {
        const std::string_view sequence = text.substr(at, 2);
        if (sequence == "%s") {
            message += text;
        } else if (sequence == "%%") {
            message += '%';
        } else {
            message += text[at++];
            continue;
        }
        at += sequence.size();
    }
    message.resize(std::min(message.size(), KvrtException::messageLimit));
    return message;
}

}  // namespace

KvrtException::KvrtException(std::uint32_t failureCode, bool isDefaultMessage,
                             std::string_view text)
    : code(failureCode), message(formatted(text)), usesDefaultMessage(isDefaultMessage) {}

ExceptionRegistration::ExceptionRegistration() {
    ExceptionRegistry& registry = ExceptionRegistry::instance();
#define KVRT_ADD(Class, failureCode, defaultText) \
    registry.add(failureCode, makeExceptionFactory<Class>());
    KVRT_EXCEPTIONS(KVRT_ADD)
#undef KVRT_ADD
}

ExceptionRegistration::~ExceptionRegistration() {
    ExceptionRegistry& registry = ExceptionRegistry::instance();
#define KVRT_REMOVE(Class, failureCode, defaultText) registry.remove(failureCode);
    KVRT_EXCEPTIONS(KVRT_REMOVE)
#undef KVRT_REMOVE
}

}  // namespace Kestrova::RT::Core
