#pragma once

#include <charconv>
#include <concepts>
#include <type_traits>

#include "core/string_helper.h"
#include "tests/support/call_script.h"

/// How arguments are told in the list of calls.
namespace scripted_text {

template <typename T>
std::string tell(T* object) requires std::derived_from<T, HostObject>;

inline std::string tell(HostBool value) {
    return value == hostTrue ? "true" : value == hostFalse ? "false" : std::to_string(value);
}
/// Shortest text that gives the same number back.
template <typename T>
std::string tell(T value) requires std::is_arithmetic_v<T> {
    std::array<char, 64> text = {};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}
inline std::string tell(const wchar_t* text) {
    return text == nullptr ? "null" : '"' + Kestrova::Utils::Kcom::StringHelper::ToUtf8(text) + '"';
}
inline std::string tell(const std::vector<std::int32_t>& numbers) {
    std::string text;
    for (const std::int32_t number : numbers) {
        text += (text.empty() ? "" : " ") + std::to_string(number);
    }
    return '[' + text + ']';
}

}  // namespace scripted_text

/// The place in a list, or null for one outside.
template <typename T>
T* elementAt(const std::vector<T*>& list, std::int32_t place) {
    const bool isInside = place >= 0 && static_cast<std::size_t>(place) < list.size();
    return isInside ? list[static_cast<std::size_t>(place)] : nullptr;
}
inline std::wstring orEmpty(const wchar_t* text) {
    return text == nullptr ? L"" : text;
}

/// A call as it is listed: the operation and its arguments, if they are to be told.
struct ScriptedCall {
    template <typename... Arguments>
    ScriptedCall(const char* nameOfOperation, const Arguments&... values)
        : operation(nameOfOperation) {
        ((arguments += (arguments.empty() ? "" : ", ") + scripted_text::tell(values)), ...);
    }

    std::string operation;
    std::string arguments;
};

/// A scripted object of one interface, with the three operations of every host object and what the
/// others are made of.
template <typename Interface>
class Scripted : public Interface, public ScriptedObject {
  public:
    explicit Scripted(CallScript& scriptToKeep)
        : ScriptedObject(typeid(Interface)), script(scriptToKeep) {}

    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override {
        const bool isFound = interfaceId == HostObject::id || interfaceId == Interface::id;
        *result = isFound ? static_cast<Interface*>(this) : nullptr;
        referenceCount += isFound ? 1 : 0;
        return isFound ? HostCode::success : HostCode::noInterface;
    }
    std::uint32_t addRef() override { return static_cast<std::uint32_t>(++referenceCount); }
    std::uint32_t release() override {
        const std::int64_t left = --referenceCount;
        overReleased = overReleased || left < 0;
        return left < 0 ? 0 : static_cast<std::uint32_t>(left);
    }

  protected:
    /// An operation that gives nothing.
    HostResult call(const ScriptedCall& made) {
        return script.enter(kind + "::" + made.operation, made.arguments, false);
    }
    /// An operation that does `action`, unless it meets with a fault.
    template <typename Action>
    HostResult act(const ScriptedCall& made, const Action& action) {
        const HostResult code = call(made);
        if (code >= 0) {
            action();
        }
        return code;
    }
    /// An operation that gives `value`.
    template <typename T, typename Value>
    HostResult get(const ScriptedCall& made, T* out, const Value& value) {
        return act(made, [&] { *out = value; });
    }
    /// An operation that stores its one argument.
    template <typename T, typename Value>
    HostResult set(const char* operation, T& field, const Value& value) {
        return act({operation, value}, [&] { field = value; });
    }
    HostResult set(const char* operation, std::wstring& field, const wchar_t* value) {
        return act({operation, value}, [&] { field = orEmpty(value); });
    }
    /// An operation that hands over what `find` gives, a pointer to a host object or null. `find`
    /// isn't called in a call that meets with a fault.
    template <typename T, typename Find>
    HostResult hand(const ScriptedCall& made, T** out, const Find& find) {
        const HostResult fault = script.enter(kind + "::" + made.operation, made.arguments, true);
        if (fault < 0) {
            return fault;
        }
        *out = fault == CallScript::noObject ? nullptr : find();
        if (*out != nullptr) {
            (*out)->addRef();
        }
        return HostCode::success;
    }

    CallScript& script;
};

template <typename T>
std::string scripted_text::tell(T* object) requires std::derived_from<T, HostObject> {
    const auto* scripted = dynamic_cast<const ScriptedObject*>(object);
    return object == nullptr ? "null" : scripted == nullptr ? "object" : scripted->kind;
}

/// Operations that are only listed: without arguments, and with one.
#define SCRIPTED_CALL(operation)      \
    HostResult operation() override { \
        return call(#operation);      \
    }
#define SCRIPTED_TAKE(operation, Type)          \
    HostResult operation(Type value) override { \
        return call({#operation, value});       \
    }
/// A reader, and below a writer, of a value that a test can see and set; the field with its value
/// at the beginning; and all three.
#define SCRIPTED_READER(operation, Type, field)  \
    HostResult operation(Type* value) override { \
        return get(#operation, value, field);    \
    }
#define SCRIPTED_WRITER(operation, Type, field) \
    HostResult operation(Type value) override { \
        return set(#operation, field, value);   \
    }
#define SCRIPTED_READ(operation, Type, field, initial) \
    SCRIPTED_READER(operation, Type, field)            \
    Type field = initial;
#define SCRIPTED_PROPERTY(Name, Out, In, field, initial) \
    SCRIPTED_READ(get##Name, Out, field, initial)        \
    SCRIPTED_WRITER(set##Name, In, field)
#define SCRIPTED_FLAG(Name, field)                      \
    SCRIPTED_READ(is##Name, HostBool, field, hostFalse) \
    SCRIPTED_WRITER(set##Name, HostBool, field)
/// The two for a value that no test reads but through them.
#define SCRIPTED_ATTRIBUTE(Name, Out, In) SCRIPTED_PROPERTY(Name, Out, In, kept##Name, Out())
#define SCRIPTED_COUNT(operation, list)                                         \
    HostResult operation(std::int32_t* number) override {                       \
        return get(#operation, number, static_cast<std::int32_t>(list.size())); \
    }
/// Hands over an object, which need not be made before it is asked for.
#define SCRIPTED_OBJECT(operation, Type, object)                         \
    HostResult operation(Type** out) override {                          \
        return hand(#operation, out, [&]() -> Type* { return object; }); \
    }
