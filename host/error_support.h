#pragma once

#include <string>

#include "host/host_object.h"

/// What went wrong in a host call, for people. Travels with the code of the failed call.
class HostErrorInfo : public HostObject {
  public:
    static constexpr InterfaceId id{
        0xF7034BF4, 0xB969, 0x4719, {0xA3, 0x33, 0xE4, 0xCB, 0x8D, 0xD2, 0x12, 0x03}};

    virtual HostResult getDescription(std::wstring* description) = 0;
    /// Who reports it.
    virtual HostResult getSource(std::wstring* source) = 0;

  protected:
    ~HostErrorInfo() = default;
};

/// An interface of those objects that explain their failures. `raiseHostError` asks for it when a
/// call has failed.
class HostErrorSupport : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x6BEF2E88, 0x5266, 0x49BE, {0x93, 0x24, 0x7B, 0x13, 0x20, 0xA6, 0x9A, 0x58}};

    /// 0 if the object explains failures of that interface's operations, anything else if not.
    virtual HostResult reportsErrorsFor(const InterfaceId& interfaceId) = 0;
    /// Hands over the calling thread's current error object and leaves none; null if there is none.
    virtual HostResult takeErrorInfo(HostErrorInfo** info) = 0;

  protected:
    ~HostErrorSupport() = default;
};
