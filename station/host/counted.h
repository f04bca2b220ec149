#pragma once

#include "host/counted_ref.h"
#include "host/error_support.h"
#include "host/implements.h"
#include "station/host/host_failure.h"

namespace station {

/// What every object that the station hands to a plug-in has in common: the count of references,
/// the query for its interfaces, and the explanation of its failures (`fail`).
///
/// Made by `makeObject` and ended by its last `release`. The count may be changed by any thread,
/// the rest belongs to the host's thread.
template <typename First, typename... Rest>
class Counted : public Implements<First>, public Rest..., public HostErrorSupport {
  public:
    // One count and one query for all of the bases.
    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override {
        return Implements<First>::queryInterface(interfaceId, result);
    }
    std::uint32_t addRef() override { return Implements<First>::addRef(); }
    std::uint32_t release() override { return Implements<First>::release(); }

    HostResult reportsErrorsFor(const InterfaceId& interfaceId) override {
        const bool own = interfaceId == First::id || ((interfaceId == Rest::id) || ...);
        return own ? HostCode::success : HostCode::failed;
    }
    HostResult takeErrorInfo(HostErrorInfo** info) override {
        *info = takeFailure().detach();
        return HostCode::success;
    }

  protected:
    void* findInterface(const InterfaceId& interfaceId) override {
        if (interfaceId == HostErrorSupport::id) {
            return static_cast<HostErrorSupport*>(this);
        }
        void* found = Implements<First>::findInterface(interfaceId);
        ((found = interfaceId == Rest::id ? static_cast<Rest*>(this) : found), ...);
        return found;
    }
};

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
