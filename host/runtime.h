#pragma once

#include "host/host_object.h"

/// What the runtime can ask an object of its own kind, beside what every host object answers.
class RuntimeObject : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x1E401A1D, 0x7BD0, 0x402F, {0xB0, 0xB8, 0x64, 0x94, 0x17, 0x48, 0xBD, 0x51}};

    /// The name of the object's type, made by `kvRtDuplicateCharPtr`: the caller frees it.
    virtual HostResult getTypeName(char** name) = 0;
    /// Whether the two stand for the same thing. Null, and an object of another class, are not
    /// equal, and no failure.
    virtual HostResult equals(HostObject* other, HostBool* equal) = 0;

  protected:
    ~RuntimeObject() = default;
};

/// A narrow text of the runtime library, UTF-8.
class RuntimeString : public HostObject {
  public:
    static constexpr InterfaceId id{
        0xB225B099, 0x0901, 0x40A5, {0xA2, 0x14, 0xCC, 0x36, 0x91, 0x8C, 0xD3, 0xEB}};

    /// Lives as long as the string; never null.
    virtual HostResult getText(const char** text) = 0;

  protected:
    ~RuntimeString() = default;
};

/// Why a toolkit call failed. One at most per thread is the current one.
class RuntimeErrorInfo : public HostObject {
  public:
    static constexpr InterfaceId id{
        0xC4583A2C, 0xE31D, 0x45BA, {0xBE, 0x71, 0x42, 0xD5, 0x39, 0x97, 0xD2, 0x80}};

    virtual HostResult setMessage(RuntimeString* message) = 0;
    /// Null if there is none.
    virtual HostResult getMessage(RuntimeString** message) = 0;
    virtual HostResult setSource(RuntimeString* source) = 0;

  protected:
    ~RuntimeErrorInfo() = default;
};

/// The exports of the host's runtime library `kvrtcoretypes-64-1`, on which its window toolkit is
/// built. Where there is no such library to link, the host hands this object out: its `HostApp` and
/// its window objects answer a query for it.
class RuntimeLibrary : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x4713D1E8, 0x59DF, 0x486E, {0x8E, 0x9B, 0x2D, 0x77, 0x6F, 0xEF, 0xAA, 0x2C}};

    /// A string of its own; null means an empty text.
    virtual HostResult createString(const char* text, RuntimeString** string) = 0;
    virtual HostResult createErrorInfo(RuntimeErrorInfo** info) = 0;
    /// The calling thread's error object, with a reference; null if there is none. It stays
    /// current.
    virtual HostResult kvRtGetErrorInfo(RuntimeErrorInfo** info) = 0;
    virtual HostResult kvRtClearErrorInfo() = 0;
    virtual HostResult kvRtSetErrorInfo(RuntimeErrorInfo* info) = 0;
    /// Enters an object in the runtime's list of live objects, and takes it out of it. Nothing is
    /// called on the object.
    virtual void kvRtTrackObject(const void* object) = 0;
    virtual void kvRtUntrackObject(const void* object) = 0;
    /// A copy of the text that the runtime owns, for a result that the toolkit frees with
    /// `std::free`. Null means an empty text; null comes back only where memory is out.
    virtual char* kvRtDuplicateCharPtr(const char* text) = 0;

  protected:
    ~RuntimeLibrary() = default;
};
