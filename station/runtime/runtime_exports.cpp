#include "station/runtime/runtime_exports.h"

#include <cstring>
#include <new>
#include <set>
#include <string>

#include "core/kvrt_exception.h"
#include "core/mutex.h"
#include "host/implements.h"

namespace {

using Kestrova::RT::Core::NoMemoryException;

constexpr HostResult outOfMemory = hostResult(NoMemoryException::classCode);

/// Runs what takes memory and nothing else that can fail.
template <typename Body>
HostResult withMemory(const Body& body) {
    try {
        body();
        return HostCode::success;
    } catch (const std::bad_alloc&) {
        return outOfMemory;
    }
}

class String final : public Implements<RuntimeString> {
  public:
    explicit String(const char* content) : text(content) {}

    HostResult getText(const char** result) override {
        *result = text.c_str();
        return HostCode::success;
    }

  private:
    const std::string text;
};

class ErrorInfo final : public Implements<RuntimeErrorInfo> {
  public:
    HostResult setMessage(RuntimeString* text) override {
        message = CountedRef<RuntimeString>(text);
        return HostCode::success;
    }
    HostResult getMessage(RuntimeString** result) override {
        *result = CountedRef<RuntimeString>(message).detach();
        return HostCode::success;
    }
    HostResult setSource(RuntimeString* text) override {
        source = CountedRef<RuntimeString>(text);
        return HostCode::success;
    }

  private:
    CountedRef<RuntimeString> message;
    CountedRef<RuntimeString> source;
};

thread_local CountedRef<RuntimeErrorInfo> currentError;

class LiveObjects {
  public:
    void enter(const void* object) CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        objects.insert(object);
    }
    void leave(const void* object) CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        if (const auto found = objects.find(object); found != objects.end()) {
            objects.erase(found);
        }
    }
    std::size_t count() CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        return objects.size();
    }

  private:
    Mutex lock;
    std::multiset<const void*> objects CMP_GUARDED_BY(lock);
};

/// Never destroyed: objects may leave at the very end of the process.
LiveObjects& liveObjects() {
    static auto* const objects = new LiveObjects;
    return *objects;
}

class Library final : public RuntimeLibrary {
  public:
    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override {
        const bool known = interfaceId == RuntimeLibrary::id || interfaceId == HostObject::id;
        *result = known ? this : nullptr;
        return known ? HostCode::success : HostCode::noInterface;
    }
    std::uint32_t addRef() override { return 1; }
    std::uint32_t release() override { return 1; }

    HostResult createString(const char* text, RuntimeString** string) override {
        return ::createString(text, string);
    }
    HostResult createErrorInfo(RuntimeErrorInfo** info) override { return ::createErrorInfo(info); }
    HostResult kvRtGetErrorInfo(RuntimeErrorInfo** info) override {
        return ::kvRtGetErrorInfo(info);
    }
    HostResult kvRtClearErrorInfo() override { return ::kvRtClearErrorInfo(); }
    HostResult kvRtSetErrorInfo(RuntimeErrorInfo* info) override {
        return ::kvRtSetErrorInfo(info);
    }
    void kvRtTrackObject(const void* object) override { ::kvRtTrackObject(object); }
    void kvRtUntrackObject(const void* object) override { ::kvRtUntrackObject(object); }
    char* kvRtDuplicateCharPtr(const char* text) override { return ::kvRtDuplicateCharPtr(text); }
};

const char* orEmpty(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace

RuntimeLibrary* kvRtGetLibrary() {
    static Library library;
    return &library;
}

HostResult createString(const char* text, RuntimeString** string) {
    return withMemory([&] { *string = new String(orEmpty(text)); });
}

HostResult createErrorInfo(RuntimeErrorInfo** info) {
    return withMemory([&] { *info = new ErrorInfo; });
}

HostResult kvRtGetErrorInfo(RuntimeErrorInfo** info) {
    *info = CountedRef<RuntimeErrorInfo>(currentError).detach();
    return HostCode::success;
}

HostResult kvRtClearErrorInfo() {
    currentError.reset();
    return HostCode::success;
}

HostResult kvRtSetErrorInfo(RuntimeErrorInfo* info) {
    currentError = CountedRef<RuntimeErrorInfo>(info);
    return HostCode::success;
}

void kvRtTrackObject(const void* object) {
    liveObjects().enter(object);
}

void kvRtUntrackObject(const void* object) {
    liveObjects().leave(object);
}

char* kvRtDuplicateCharPtr(const char* text) {
    return ::strdup(orEmpty(text));
}

std::size_t kvRtTrackedCount() {
    return liveObjects().count();
}
