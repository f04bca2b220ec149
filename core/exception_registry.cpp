#include "core/exception_registry.h"

#include <cstdlib>
#include <new>
#include <stdexcept>
#include <utility>

namespace Kestrova::RT::Core {

ExceptionRegistry& ExceptionRegistry::instance() {
    alignas(ExceptionRegistry) static std::byte place[sizeof(ExceptionRegistry)];
    static ExceptionRegistry* const registry = [] {
        auto* const made = new (place) ExceptionRegistry;
        std::atexit([] { instance().close(); });
        return made;
    }();
    return *registry;
}

void ExceptionRegistry::add(std::uint32_t code, OwnedExceptionFactory factory) {
    const LockGuard guard(lock);
    if (factories) {
        (*factories)[code] = std::move(factory);
    }
}

void ExceptionRegistry::remove(std::uint32_t code) {
    if (closing) {
        return;
    }
    const LockGuard guard(lock);
    if (factories) {
        factories->erase(code);
    }
}

IExceptionFactory& ExceptionRegistry::find(std::uint32_t code) {
    const LockGuard guard(lock);
    if (factories) {
        if (const auto place = factories->find(code); place != factories->end()) {
            return *place->second;
        }
    }
    return fallback;
}

void ExceptionRegistry::close() {
    closing = true;
    const LockGuard guard(lock);
    factories.reset();
}

std::size_t ExceptionRegistry::HashOfCode::operator()(std::uint32_t code) const {
    constexpr std::uint64_t offsetBasis = 0xCBF29CE484222325U;
    constexpr std::uint64_t prime = 0x100000001B3U;
    std::uint64_t hash = offsetBasis;
    for (int byte = 0; byte < 4; ++byte) {
        hash = (hash ^ (code & 0xFFU)) * prime;
        code >>= 8;
    }
    return hash;
}

void raiseFromCode(std::uint32_t code, const std::string& message) {
    ExceptionRegistry::instance().find(code).raise(code, message);
    throw std::runtime_error(message + " (" + std::to_string(code) + ")");
}

}  // namespace Kestrova::RT::Core
