#pragma once

#include <cxxabi.h>

#include <charconv>
#include <concepts>
#include <type_traits>
#include <typeinfo>

#include "core/string_helper.h"
#include "host/host_object.h"
#include "host/host_variant.h"
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
inline std::string tell(const HostVariant& value) {
    return "variant of type " + std::to_string(static_cast<std::uint16_t>(value.type));
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

/// One object of a scripted host. Its `references` are those of the code under test: the script
/// itself holds none, and keeps the object by other means.
class ScriptedObject {
  public:
    ScriptedObject(CallScript& scriptToKeep, const std::type_info& interface)
        : kind(nameOf(interface)), script(scriptToKeep) {
        script.attend(this);
    }
    virtual ~ScriptedObject() { script.leave(this); }
    ScriptedObject(const ScriptedObject&) = delete;
    ScriptedObject& operator=(const ScriptedObject&) = delete;

    std::int64_t references() const { return referenceCount; }
    bool isOverReleased() const { return overReleased; }

    /// Makes a query on this object find another one.
    template <typename T>
    void addPart(T* part) {
        parts.push_back({T::id, part, part});
    }

    const std::string kind;  ///< the name of the interface

  protected:
    std::uint32_t addReference() { return static_cast<std::uint32_t>(++referenceCount); }
    std::uint32_t dropReference() {
        const std::int64_t left = --referenceCount;
        overReleased = overReleased || left < 0;
        return left < 0 ? 0 : static_cast<std::uint32_t>(left);
    }
    /// The part of that interface with a reference, or null.
    void* findPart(const InterfaceId& interfaceId) const {
        for (const Part& part : parts) {
            if (part.interfaceId == interfaceId) {
                part.object->addRef();
                return part.pointer;
            }
        }
        return nullptr;
    }

    /// An operation that gives nothing.
    template <typename... Arguments>
    HostResult call(const char* operation, const Arguments&... arguments) {
        return enter(operation, false, arguments...).code;
    }
    /// An operation that gives `value`.
    template <typename T, typename Value, typename... Arguments>
    HostResult get(const char* operation, T* out, const Value& value,
                   const Arguments&... arguments) {
        const HostResult code = call(operation, arguments...);
        if (code >= 0) {
            *out = value;
        }
        return code;
    }
    /// An operation that stores its one argument.
    template <typename T, typename Value>
    HostResult set(const char* operation, T& field, const Value& value) {
        const HostResult code = call(operation, value);
        if (code >= 0) {
            if constexpr (std::is_same_v<Value, const wchar_t*>) {
                field = orEmpty(value);
            } else {
                field = value;
            }
        }
        return code;
    }
    /// An operation that hands over what `find` gives, a pointer to a host object or null. `find`
    /// isn't called in a call that meets with a fault.
    template <typename T, typename Find, typename... Arguments>
    HostResult hand(const char* operation, T** out, const Find& find,
                    const Arguments&... arguments) {
        const auto verdict = enter(operation, true, arguments...);
        if (verdict.code < 0) {
            return verdict.code;
        }
        *out = verdict.handsNull ? nullptr : find();
        if (*out != nullptr) {
            (*out)->addRef();
        }
        return verdict.code;
    }

    CallScript& script;

  private:
    struct Part {
        InterfaceId interfaceId;
        HostObject* object;
        void* pointer;
    };

    static std::string nameOf(const std::type_info& type) {
        char* const text = abi::__cxa_demangle(type.name(), nullptr, nullptr, nullptr);
        const std::string name = text;
        std::free(text);
        return name;
    }
    template <typename... Arguments>
    CallScript::Verdict enter(const char* operation, bool handsObject,
                              const Arguments&... arguments) {
        std::string text;
        ((text += (text.empty() ? "" : ", ") + scripted_text::tell(arguments)), ...);
        return script.enter(kind + "::" + operation, text, handsObject);
    }

    std::atomic<std::int64_t> referenceCount = 0;
    std::atomic<bool> overReleased = false;
    std::vector<Part> parts;
};

/// A scripted object of one interface, which carries the three operations of every host object.
template <typename Interface>
class Scripted : public Interface, public ScriptedObject {
  public:
    explicit Scripted(CallScript& scriptToKeep) : ScriptedObject(scriptToKeep, typeid(Interface)) {}

    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override {
        *result = nullptr;
        if (const HostResult code = script.enterQuery(kind + "::queryInterface"); code < 0) {
            return code;
        }
        if (interfaceId == HostObject::id) {
            *result = static_cast<HostObject*>(this);
        } else if (interfaceId == Interface::id) {
            *result = static_cast<Interface*>(this);
        } else {
            *result = findPart(interfaceId);
            return *result == nullptr ? HostCode::noInterface : HostCode::success;
        }
        addReference();
        return HostCode::success;
    }
    std::uint32_t addRef() override { return addReference(); }
    std::uint32_t release() override { return dropReference(); }
};

template <typename T>
std::string scripted_text::tell(T* object) requires std::derived_from<T, HostObject> {
    const auto* scripted = dynamic_cast<const ScriptedObject*>(object);
    return object == nullptr ? "null" : scripted == nullptr ? "object" : scripted->kind;
}

/// Operations that are only listed: without arguments, with one, and one that gives a zero.
#define SCRIPTED_CALL(operation)      \
    HostResult operation() override { \
        return call(#operation);      \
    }
#define SCRIPTED_TAKE(operation, Type)          \
    HostResult operation(Type value) override { \
        return call(#operation, value);         \
    }
#define SCRIPTED_GIVE(operation, Type)           \
    HostResult operation(Type* value) override { \
        return get(#operation, value, Type());   \
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
#define SCRIPTED_PROPERTY(Name, Type, field, initial) \
    SCRIPTED_READ(get##Name, Type, field, initial)    \
    SCRIPTED_WRITER(set##Name, Type, field)
#define SCRIPTED_TEXT(Name, field)                     \
    SCRIPTED_READ(get##Name, std::wstring, field, L"") \
    SCRIPTED_WRITER(set##Name, const wchar_t*, field)
#define SCRIPTED_FLAG(Name, field)                      \
    SCRIPTED_READ(is##Name, HostBool, field, hostFalse) \
    SCRIPTED_WRITER(set##Name, HostBool, field)
/// The two for a value that no test reads but through them.
#define SCRIPTED_ATTRIBUTE(Name, Out, In)            \
    SCRIPTED_READ(get##Name, Out, kept##Name, Out()) \
    SCRIPTED_WRITER(set##Name, In, kept##Name)
#define SCRIPTED_COUNT(operation, list)                                         \
    HostResult operation(std::int32_t* number) override {                       \
        return get(#operation, number, static_cast<std::int32_t>(list.size())); \
    }
/// Hands over an object, which need not be made before it is asked for.
#define SCRIPTED_OBJECT(operation, Type, object)                         \
    HostResult operation(Type** out) override {                          \
        return hand(#operation, out, [&]() -> Type* { return object; }); \
    }
