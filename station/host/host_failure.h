#pragma once

#include <exception>
#include <string>

#include "host/error_support.h"
#include "host/host_error.h"

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

}  // namespace station
