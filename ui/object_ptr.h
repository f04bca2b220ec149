#pragma once

#include <string>
#include <utility>

#include "core/kvrt_exception.h"
#include "host/counted_ref.h"
#include "host/host_error.h"
#include "host/runtime.h"
#include "host/runtime_error.h"

namespace Kestrova::RT::Core {

/// The runtime library, with a reference; empty only where no object is.
using RuntimePtr = CountedRef<RuntimeLibrary>;

/// A reference to an object of the toolkit, or none: the ground of all adapters. It gives plain
/// values and throws what a failed call raises (`checkErrorInfo`); any operation of a null
/// reference is an `InvalidParameterException`.
///
/// A borrowed reference is one that somebody else keeps for as long as this one is used, and that
/// isn't released here; a copy of it has a reference of its own.
template <typename I>
class ObjectPtr {
  public:
    using Interface = I;

    ObjectPtr() = default;
    ObjectPtr(RuntimePtr library, CountedRef<I> object)
        : runtimeLibrary(std::move(library)), reference(std::move(object)) {}
    ObjectPtr(const ObjectPtr& other)
        : runtimeLibrary(other.runtimeLibrary), reference(other.reference) {}
    ObjectPtr(ObjectPtr&& other) noexcept { swap(other); }
    ObjectPtr& operator=(ObjectPtr other) noexcept {
        swap(other);
        return *this;
    }
    ~ObjectPtr() {
        if (borrowed) {
            static_cast<void>(reference.detach());
        }
    }

    static ObjectPtr borrow(RuntimePtr library, I* object) {
        ObjectPtr result(std::move(library), CountedRef<I>::adopt(object));
        result.borrowed = true;
        return result;
    }

    explicit operator bool() const { return static_cast<bool>(reference); }
    const RuntimePtr& getRuntime() const { return runtimeLibrary; }

    /// The object itself; throws for a null reference.
    I& target() const {
        if (!reference) {
            throw InvalidParameterException();
        }
        return *reference;
    }
    /// Checks the result of a call that was made by hand.
    void check(HostResult result) const { checkErrorInfo(*runtimeLibrary, result); }

    /// Calls an operation: `call(&IDrawGrid::setRowCount, 3)`.
    template <typename Base, typename... Parameters, typename... Arguments>
    void call(HostResult (Base::*operation)(Parameters...), Arguments&&... arguments) const {
        check((target().*operation)(std::forward<Arguments>(arguments)...));
    }
    /// The number that an operation gives through its last parameter.
    template <typename Base, typename... Parameters, typename... Arguments>
    auto value(HostResult (Base::*operation)(Parameters...), Arguments&&... arguments) const {
        host_call::OutOf<Parameters...> result{};
        call(operation, std::forward<Arguments>(arguments)..., &result);
        return result;
    }
    /// The object that an operation hands over through its last parameter; null if there is none.
    template <typename Base, typename... Parameters, typename... Arguments>
    auto object(HostResult (Base::*operation)(Parameters...), Arguments&&... arguments) const {
        using Found = std::remove_pointer_t<host_call::OutOf<Parameters...>>;
        CountedRef<Found> found;
        call(operation, std::forward<Arguments>(arguments)..., found.out());
        return ObjectPtr<Found>(runtimeLibrary, std::move(found));
    }
    /// Another interface of the object; throws if it has none.
    template <typename U>
    ObjectPtr<U> query() const {
        void* found = nullptr;
        check(target().queryInterface(U::id, &found));
        return {runtimeLibrary, CountedRef<U>::adopt(static_cast<U*>(found))};
    }

  private:
    void swap(ObjectPtr& other) noexcept {
        std::swap(runtimeLibrary, other.runtimeLibrary);
        std::swap(reference, other.reference);
        std::swap(borrowed, other.borrowed);
    }

    RuntimePtr runtimeLibrary;
    CountedRef<I> reference;
    bool borrowed = false;
};

/// A runtime string; its text is UTF-8.
class StringPtr : public ObjectPtr<RuntimeString> {
  public:
    StringPtr() = default;
    explicit StringPtr(ObjectPtr string) : ObjectPtr(std::move(string)) {}
    StringPtr(const RuntimePtr& library, const std::string& text)
        : ObjectPtr(library, makeString(library, text)) {}

    std::string getText() const { return value(&RuntimeString::getText); }
    /// For an argument of a call.
    RuntimeString* get() const { return &target(); }

  private:
    static CountedRef<RuntimeString> makeString(const RuntimePtr& library,
                                                const std::string& text) {
        if (!library) {  // for an operation of a null reference
            throw InvalidParameterException();
        }
        CountedRef<RuntimeString> string;
        checkErrorInfo(*library, library->createString(text.c_str(), string.out()));
        return string;
    }
};

}  // namespace Kestrova::RT::Core
