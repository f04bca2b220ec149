#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

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
inline std::string tell(std::int32_t value) {
    return std::to_string(value);
}
inline std::string tell(std::uint32_t value) {
    return std::to_string(value);
}
inline std::string tell(std::int64_t value) {
    return std::to_string(value);
}
/// Shortest text that gives the same number back.
std::string tell(double value);
std::string tell(float value);
inline std::string tell(const wchar_t* text) {
    return text == nullptr ? "null" : '"' + Kestrova::Utils::Kcom::StringHelper::ToUtf8(text) + '"';
}
std::string tell(const std::vector<std::int32_t>& numbers);
std::string tell(const HostVariant& value);

}  // namespace scripted_text

/// One object of a scripted host. Its `references` are those of the code under test: the script
/// itself holds none, and keeps the object by other means.
class ScriptedObject {
  public:
    ScriptedObject(CallScript& scriptToKeep, std::string kindOfObject);
    virtual ~ScriptedObject();
    ScriptedObject(const ScriptedObject&) = delete;
    ScriptedObject& operator=(const ScriptedObject&) = delete;

    std::int64_t references() const { return referenceCount; }
    /// What `CallScript::referenceFaults` tells of this object, empty if nothing.
    std::string referenceFault() const;

    /// Makes a query on this object find another one.
    template <typename T>
    void addPart(T* part) {
        parts.push_back({T::id, part, part});
    }

    const std::string kind;

  protected:
    std::uint32_t addReference();
    std::uint32_t dropReference();
    /// The part of that interface with a reference, or null.
    void* findPart(const InterfaceId& interfaceId) const;

    /// An operation that gives nothing.
    template <typename... Arguments>
    HostResult call(const char* operation, const Arguments&... arguments) {
        return script.enter(operation, tellAll(arguments...), false).code;
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
                field = value == nullptr ? L"" : value;
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
        const auto verdict = script.enter(operation, tellAll(arguments...), true);
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

    template <typename... Arguments>
    static std::string tellAll(const Arguments&... arguments) {
        std::string text;
        ((text += (text.empty() ? "" : ", ") + scripted_text::tell(arguments)), ...);
        return text;
    }

    std::atomic<std::int64_t> referenceCount = 0;
    std::atomic<bool> overReleased = false;
    std::vector<Part> parts;
};

/// A scripted object of one interface, which carries the three operations of every host object.
template <typename Interface>
class Scripted : public Interface, public ScriptedObject {
  public:
    using ScriptedObject::ScriptedObject;

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

/// A reader, and below a reader and a writer, of one value that a test can see and set.
#define SCRIPTED_READER(Interface, operation, Type, field)    \
    HostResult operation(Type* value) override {              \
        return get(#Interface "::" #operation, value, field); \
    }
#define SCRIPTED_WRITER(Interface, operation, Type, field)    \
    HostResult operation(Type value) override {               \
        return set(#Interface "::" #operation, field, value); \
    }
#define SCRIPTED_PROPERTY(Interface, Name, Out, In, field) \
    SCRIPTED_READER(Interface, get##Name, Out, field)      \
    SCRIPTED_WRITER(Interface, set##Name, In, field)
#define SCRIPTED_FLAG(Interface, Name, field)             \
    SCRIPTED_READER(Interface, is##Name, HostBool, field) \
    SCRIPTED_WRITER(Interface, set##Name, HostBool, field)
