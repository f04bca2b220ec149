#pragma once

#include <exception>
#include <new>
#include <string>

#include "host/counted_ref.h"
#include "host/error_support.h"
#include "host/host_error.h"
#include "host/implements.h"

namespace station {

/// Keeps the text (UTF-8) for whoever asks the failed object for its error, and returns the code:
/// `return fail(HostCode::invalidArgument, "there is no data type 11")`. One text a thread; a later
/// failure replaces it.
HostResult fail(HostResult code, const std::string& text);

/// The calling thread's error object, which it has no longer then; empty if there is none.
CountedRef<HostErrorInfo> takeFailure();

/// Runs the body of a host operation, out of which no exception may come: one becomes its code, or
/// `HostCode::failed`, with its text.
template <typename Body>
HostResult guarded(const Body& body) {
    try {
        return body();
    } catch (const HostCallException& failure) {
        return failure.getCode();
    } catch (const std::bad_alloc&) {
        return fail(HostCode::outOfMemory, "not enough memory");
    } catch (const std::exception& failure) {
        return fail(HostCode::failed, failure.what());
    }
}

/// Keeps a value that came in through a host operation.
template <typename T, typename Value>
HostResult put(T& field, const Value& value) {
    field = value;
    return HostCode::success;
}

/// Gives a value out through the parameter of a host operation.
template <typename T, typename Value>
HostResult give(T* result, const Value& value) {
    *result = value;
    return HostCode::success;
}

/// A text that came in through a host operation, where null means an empty one.
inline std::wstring textOf(const wchar_t* text) {
    return text == nullptr ? std::wstring() : std::wstring(text);
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

/// What every object that the station hands to a plug-in has in common: it explains its failures
/// (`fail`). Its count may be changed by any thread, the rest belongs to the host's thread.
template <typename... Interfaces>
class Counted : public Implements<Interfaces..., HostErrorSupport> {
  public:
    HostResult reportsErrorsFor(const InterfaceId& interfaceId) override {
        return ((interfaceId == Interfaces::id) || ...) ? HostCode::success : HostCode::failed;
    }
    HostResult takeErrorInfo(HostErrorInfo** info) override {
        return give(info, takeFailure().detach());
    }
};

}  // namespace station
