#pragma once

#include <exception>
#include <new>
#include <string>

#include "core/kvrt_exception.h"
#include "host/counted_ref.h"
#include "host/runtime.h"

/// How the station's toolkits fail, and their texts. A toolkit throws inside; `toolkitCall` is
/// at each operation that a plug-in calls.
namespace station {

/// Sets the calling thread's error object to that text (UTF-8) and returns the code.
HostResult failToolkit(std::uint32_t code, const std::string& text);

/// Runs the body of a toolkit's operation, out of which no exception may come. One becomes its
/// code, with its text.
template <typename Body>
HostResult toolkitCall(const Body& body) {
    namespace Core = Kestrova::RT::Core;
    try {
        body();
        return HostCode::success;
    } catch (const Core::KvrtException& failure) {
        return failToolkit(failure.getCode(), failure.what());
    } catch (const std::bad_alloc&) {
        return hostResult(Core::NoMemoryException::classCode);
    } catch (const std::exception& failure) {
        return failToolkit(Core::GeneralErrorException::classCode, failure.what());
    }
}

/// A new runtime string. Throws `std::bad_alloc`.
CountedRef<RuntimeString> makeText(const std::string& text);
/// Empty for null.
std::string textOf(RuntimeString* string);

}  // namespace station
