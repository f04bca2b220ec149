#pragma once

#include <cstring>
#include <set>
#include <string>

#include "host/runtime.h"
#include "tests/support/scripted_object.h"

class ScriptedRuntimeString final : public Scripted<RuntimeString> {
  public:
    explicit ScriptedRuntimeString(CallScript& callScript, std::string textOfString)
        : Scripted(callScript, "RuntimeString"), text(std::move(textOfString)) {}

    SCRIPTED_READER(RuntimeString, getText, const char*, text.c_str())

    std::string text;
};

class ScriptedRuntimeError final : public Scripted<RuntimeErrorInfo> {
  public:
    explicit ScriptedRuntimeError(CallScript& callScript)
        : Scripted(callScript, "RuntimeErrorInfo") {}

    SCRIPTED_WRITER(RuntimeErrorInfo, setMessage, RuntimeString*, message)
    HostResult getMessage(RuntimeString** out) override {
        return hand("RuntimeErrorInfo::getMessage", out, [&] { return message; });
    }
    SCRIPTED_WRITER(RuntimeErrorInfo, setSource, RuntimeString*, source)

    RuntimeString* message = nullptr;
    RuntimeString* source = nullptr;
};

/// The runtime library, as if there were only one thread. Tracking isn't listed among the calls.
class ScriptedRuntime final : public Scripted<RuntimeLibrary> {
  public:
    explicit ScriptedRuntime(CallScript& callScript) : Scripted(callScript, "RuntimeLibrary") {}

    /// Makes an error with that message the current one.
    void putError(const std::string& message) {
        auto& error = script.make<ScriptedRuntimeError>();
        error.message = &script.make<ScriptedRuntimeString>(message);
        current = &error;
    }

    HostResult createString(const char* text, RuntimeString** string) override {
        const auto create = [&] {
            return &script.make<ScriptedRuntimeString>(text == nullptr ? "" : text);
        };
        return hand("RuntimeLibrary::createString", string, create);
    }
    HostResult createErrorInfo(RuntimeErrorInfo** info) override {
        const auto create = [&] { return &script.make<ScriptedRuntimeError>(); };
        return hand("RuntimeLibrary::createErrorInfo", info, create);
    }
    HostResult kvRtGetErrorInfo(RuntimeErrorInfo** info) override {
        return hand("RuntimeLibrary::kvRtGetErrorInfo", info, [&] { return current; });
    }
    HostResult kvRtClearErrorInfo() override {
        const HostResult code = call("RuntimeLibrary::kvRtClearErrorInfo");
        if (code >= 0) {
            current = nullptr;
        }
        return code;
    }
    SCRIPTED_WRITER(RuntimeLibrary, kvRtSetErrorInfo, RuntimeErrorInfo*, current)
    void kvRtTrackObject(const void* object) override { tracked.insert(object); }
    void kvRtUntrackObject(const void* object) override { tracked.erase(object); }
    /// For the caller to `free`.
    char* kvRtDuplicateCharPtr(const char* text) override { return ::strdup(text); }

    RuntimeErrorInfo* current = nullptr;
    std::multiset<const void*> tracked;
};
