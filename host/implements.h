#pragma once

#include <atomic>
#include <cassert>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "host/counted_ref.h"
#include "host/host_object.h"

namespace implements {

template <typename>
struct Nothing {};
/// What an object has to derive from for `Other` beside `Interface`: nothing if that derives from
/// it.
template <typename Interface, typename Other>
using Beside = std::conditional_t<std::is_base_of_v<Other, Interface>, Nothing<Other>, Other>;

}  // namespace implements

/// What every implementation of host interfaces needs: the count of references, which starts with
/// the maker's one, and the query, which finds `Interface`, the others, of which each is a base of
/// it or one beside it, and `HostObject`. Made by `makeObject` and ended by its last `release`.
template <typename Interface, typename... Others>
class Implements : public Interface, public implements::Beside<Interface, Others>... {
  public:
    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override {
        *result = findInterface(interfaceId);
        if (*result == nullptr) {
            return HostCode::noInterface;
        }
        addRef();
        return HostCode::success;
    }
    std::uint32_t addRef() override { return static_cast<std::uint32_t>(++references); }
    std::uint32_t release() override {
        const std::int32_t left = --references;
        assert(left >= 0);
        if (left == 0) {
            delete this;
        }
        return static_cast<std::uint32_t>(left);
    }

  protected:
    Implements() = default;
    virtual ~Implements() = default;

    /// The interface as a pointer to that very class, null if there is none; without a reference.
    virtual void* findInterface(const InterfaceId& interfaceId) {
        Interface* const self = this;
        if (interfaceId == HostObject::id) {
            return static_cast<HostObject*>(self);
        }
        void* found = interfaceId == Interface::id ? self : nullptr;
        ((found = interfaceId == Others::id ? static_cast<Others*>(this) : found), ...);
        return found;
    }

  private:
    std::atomic<std::int32_t> references = 1;
};

/// A new object and its one reference.
template <typename T, typename... Arguments>
CountedRef<T> makeObject(Arguments&&... arguments) {
    return CountedRef<T>::adopt(new T(std::forward<Arguments>(arguments)...));
}
