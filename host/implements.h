#pragma once

#include <atomic>
#include <cassert>
#include <cstdint>
#include <utility>

#include "host/counted_ref.h"
#include "host/host_object.h"

/// What every implementation of a host interface needs: the count of references, which starts with
/// the maker's one, and the query, which finds `Interface`, those of its bases that are named, and
/// `HostObject`. Made by `makeObject` and ended by its last `release`.
template <typename Interface, typename... Bases>
class Implements : public Interface {
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
        ((found = interfaceId == Bases::id ? static_cast<Bases*>(self) : found), ...);
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
