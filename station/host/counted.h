#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "host/counted_ref.h"
#include "host/error_support.h"
#include "station/host/host_failure.h"

namespace station {

/// What every object that the station hands to a plug-in has in common: the count of references,
/// the query for its interfaces, and the explanation of its failures (`fail`).
///
/// Made by `makeCounted` and ended by its last `release`. The count may be changed by any thread,
/// the rest belongs to the host's thread.
template <typename First, typename... Rest>
class Counted : public First, public Rest..., public HostErrorSupport {
  public:
    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override {
        *result = find(interfaceId);
        if (*result == nullptr) {
            return HostCode::noInterface;
        }
        addRef();
        return HostCode::success;
    }
    std::uint32_t addRef() override { return ++references; }
    std::uint32_t release() override {
        const std::uint32_t left = --references;
        if (left == 0) {
            delete this;
        }
        return left;
    }

    HostResult reportsErrorsFor(const InterfaceId& interfaceId) override {
        const bool own = interfaceId == First::id || ((interfaceId == Rest::id) || ...);
        return own ? HostCode::success : HostCode::failed;
    }
    HostResult takeErrorInfo(HostErrorInfo** info) override {
        *info = takeFailure().detach();
        return HostCode::success;
    }

  protected:
    Counted() = default;
    virtual ~Counted() = default;

  private:
    void* find(const InterfaceId& interfaceId) {
        if (interfaceId == HostObject::id) {
            return static_cast<HostObject*>(static_cast<First*>(this));
        }
        if (interfaceId == HostErrorSupport::id) {
            return static_cast<HostErrorSupport*>(this);
        }
        void* found = interfaceId == First::id ? static_cast<First*>(this) : nullptr;
        ((found = interfaceId == Rest::id ? static_cast<Rest*>(this) : found), ...);
        return found;
    }

    std::atomic<std::uint32_t> references = 1;
};

/// A new object and its one reference.
template <typename T, typename... Arguments>
CountedRef<T> makeCounted(Arguments&&... arguments) {
    return CountedRef<T>::adopt(new T(std::forward<Arguments>(arguments)...));
}

/// Hands an object over through the last parameter of a host operation. Null is handed over as it
/// is.
template <typename Interface, typename T>
HostResult handOver(const CountedRef<T>& object, Interface** result) {
    if (object) {
        object->addRef();
    }
    *result = object.get();
    return HostCode::success;
}

}  // namespace station
