#pragma once

#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

#include "host/counted_ref.h"
#include "host/error_support.h"
#include "host/host_object.h"

/// How a failed call of the host becomes an exception, and calls that do so by themselves. The
/// window toolkit's calls go through `checkErrorInfo` instead.
///
/// All is inline and lies here, and not with the other errors in core/, because it speaks of host
/// objects, which core/ doesn't know; and every folder that calls the host needs it.

/// A call of the host failed, or there was no object to call. Outside the family of
/// `KvrtException` and of `std::exception`, so that nothing inside takes it for an error of its
/// own: it belongs to whoever called the plug-in.
class HostCallException {
  public:
    HostCallException(HostResult failure, CountedRef<HostErrorInfo> info)
        : code(failure), errorInfo(std::move(info)) {}

    HostResult getCode() const { return code; }
    /// The host's explanation; often empty.
    const CountedRef<HostErrorInfo>& getErrorInfo() const { return errorInfo; }

  private:
    HostResult code;
    CountedRef<HostErrorInfo> errorInfo;
};

/// An array of the host was not what it must be, or was accessed outside its bounds.
class HostArrayException {
  public:
    explicit HostArrayException(HostResult failure) : code(failure) {}

    HostResult getCode() const { return code; }

  private:
    HostResult code;
};

/// Throws `HostCallException` with the current error object of `object`, if that explains the
/// failures of `interfaceId`. `object` may be null.
[[noreturn]] inline void raiseHostError(HostResult code, HostObject* object,
                                        const InterfaceId& interfaceId) {
    CountedRef<HostErrorSupport> support;
    CountedRef<HostErrorInfo> info;
    const bool explains = CountedRef<HostObject>(object).queryTo(support) >= 0 && support &&
                          support->reportsErrorsFor(interfaceId) == HostCode::success;
    if (explains && support->takeErrorInfo(info.out()) < 0) {
        info.reset();
    }
    throw HostCallException(code, std::move(info));
}

/// For a failure that no object has made.
[[noreturn]] inline void raiseHostError(HostResult code) {
    throw HostCallException(code, {});
}

/// Raises a negative result of an operation of `object`'s interface T.
template <typename T>
void checkHost(HostResult result, T* object) {
    if (result < 0) {
        raiseHostError(result, object, T::id);
    }
}

/// The object behind a pointer or `CountedRef`; raises `HostCode::invalidPointer` for none.
template <typename T>
T& requireObject(T* object) {
    if (object == nullptr) {
        raiseHostError(HostCode::invalidPointer);
    }
    return *object;
}
template <typename T>
T& requireObject(const CountedRef<T>& object) {
    return requireObject(object.get());
}

/// Calls an operation of the object behind a pointer or `CountedRef`; raises if there is no object
/// or if the call fails: `callHost(channel, &HostChannel::setColor, 0xFF0000U)`.
template <typename Ref, typename Interface, typename... Parameters, typename... Arguments>
void callHost(const Ref& object, HostResult (Interface::*operation)(Parameters...),
              Arguments&&... arguments) {
    Interface& target = requireObject(object);
    checkHost((target.*operation)(std::forward<Arguments>(arguments)...), &target);
}

namespace host_call {

/// What an operation's last parameter, a pointer, points at.
template <typename... Parameters>
using OutOf = std::remove_pointer_t<
    std::tuple_element_t<sizeof...(Parameters) - 1, std::tuple<Parameters...>>>;

}  // namespace host_call

/// The value that an operation gives through its last parameter; raises as `callHost`:
/// `const double rate = hostValue(data, &HostData::getSampleRate)`.
template <typename Ref, typename Interface, typename... Parameters, typename... Arguments>
auto hostValue(const Ref& object, HostResult (Interface::*getter)(Parameters...),
               Arguments&&... arguments) {
    host_call::OutOf<Parameters...> value{};
    static_assert(!std::is_pointer_v<decltype(value)> ||
                      !std::is_base_of_v<HostObject, std::remove_pointer_t<decltype(value)>>,
                  "an object that is handed over needs an owner: use hostObject");
    callHost(object, getter, std::forward<Arguments>(arguments)..., &value);
    return value;
}

/// The object that an operation hands over through its last parameter, empty if there is none;
/// raises as `callHost`: `const auto child = hostObject(element, &HostElement::GetChild, 0)`.
template <typename Ref, typename Interface, typename... Parameters, typename... Arguments>
auto hostObject(const Ref& object, HostResult (Interface::*getter)(Parameters...),
                Arguments&&... arguments) {
    CountedRef<std::remove_pointer_t<host_call::OutOf<Parameters...>>> found;
    callHost(object, getter, std::forward<Arguments>(arguments)..., found.out());
    return found;
}

/// Another interface of the object; empty if there is no object or if it lacks the interface.
/// Raises any other failure.
template <typename U, typename T>
CountedRef<U> queryHost(const CountedRef<T>& object) {
    CountedRef<U> found;
    if (object) {
        const HostResult answer = object.queryTo(found);
        if (answer != HostCode::noInterface) {
            checkHost(answer, object.get());
        }
    }
    return found;
}
