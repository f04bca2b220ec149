#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include "host/host_object.h"

/// Owns one reference to a host object, or none: what makes sure that each reference is given back
/// exactly once, also where an exception passes.
///
/// Construction from a pointer adds a reference; `adopt` and `out` take over one that was handed
/// over. Two refs are equal if they hold the same pointer. As safe across threads as a raw pointer.
template <typename T>
class CountedRef {
  public:
    CountedRef() = default;
    CountedRef(std::nullptr_t) {}
    /// Keeps an object that somebody else holds; null gives an empty ref.
    explicit CountedRef(T* object) : held(object) {
        if (held != nullptr) {
            held->addRef();
        }
    }
    CountedRef(const CountedRef& other) : CountedRef(other.held) {}
    CountedRef(CountedRef&& other) noexcept : held(other.detach()) {}
    /// By one of its bases.
    template <typename U>
    CountedRef(const CountedRef<U>& other) requires std::is_convertible_v<U*, T*>
        : CountedRef(static_cast<T*>(other.get())) {}
    CountedRef& operator=(CountedRef other) noexcept {
        std::swap(held, other.held);
        return *this;
    }
    ~CountedRef() { reset(); }

    /// Takes over a reference that the caller already has.
    static CountedRef adopt(T* object) {
        CountedRef ref;
        ref.held = object;
        return ref;
    }

    /// Gives back what is held.
    void reset() {
        if (T* const object = detach(); object != nullptr) {
            object->release();
        }
    }
    /// Leaves the ref empty and its reference with the caller.
    [[nodiscard]] T* detach() { return std::exchange(held, nullptr); }

    /// Gives back what is held, and serves as the `T**` of an operation that hands over an object.
    T** out() {
        reset();
        return &held;
    }

    T* get() const { return held; }
    /// Not for an empty ref: `callHost` tests and raises.
    T* operator->() const { return held; }
    T& operator*() const { return *held; }
    explicit operator bool() const { return held != nullptr; }
    friend bool operator==(const CountedRef& a, const CountedRef& b) { return a.held == b.held; }

    /// Asks the object for another of its interfaces. Returns the object's answer, with `result`
    /// empty unless that is a success; an empty ref is `HostCode::invalidPointer`.
    template <typename U>
    HostResult queryTo(CountedRef<U>& result) const {
        result.reset();
        if (held == nullptr) {
            return HostCode::invalidPointer;
        }
        void* found = nullptr;
        const HostResult answer = held->queryInterface(U::id, &found);
        if (answer >= 0) {
            result = CountedRef<U>::adopt(static_cast<U*>(found));
        }
        return answer;
    }

  private:
    T* held = nullptr;
};
