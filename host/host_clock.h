#pragma once

#include <cstdint>
#include <string>

#include "host/host_object.h"

/// The clock of the acquisition.
class HostMasterClock : public HostObject {
  public:
    static constexpr InterfaceId id{
        0xFEAFDC3B, 0xBDD9, 0x45B3, {0xBA, 0xEE, 0x94, 0xD2, 0xC4, 0x84, 0x16, 0xAB}};

    /// Seconds since the start of the measurement, now; 0.0 before it.
    virtual HostResult getTimeSeconds(double* seconds) = 0;

  protected:
    ~HostMasterClock() = default;
};

/// A source of satellite time as the host knows it: each clock of the plug-in has one. The user
/// chooses here how the clock follows the host's.
class HostGnssDevice : public HostObject {
  public:
    static constexpr InterfaceId id{
        0xAEAF4869, 0xD39F, 0x4415, {0x8E, 0x7D, 0x4D, 0xA6, 0xF2, 0x06, 0x1D, 0x32}};
    static constexpr std::int32_t syncModeSoft = 2;  ///< the two clocks are fitted in software
    static constexpr std::int32_t syncModePps = 12;  ///< a pulse per second keeps them in step

    /// The mode to offer first.
    virtual HostResult setDefaultSyncMode(std::int32_t mode) = 0;
    /// Adds a mode to those that the user can choose.
    virtual HostResult addSyncMode(std::int32_t mode) = 0;
    virtual HostResult getSyncMode(std::int32_t* mode) = 0;
    virtual HostResult setSyncMode(std::int32_t mode) = 0;
    /// Whether this clock leads: it fixes the start time of the measurement.
    virtual HostResult getClockSource(HostBool* isSource) = 0;
    virtual HostResult setClockSource(HostBool isSource) = 0;

  protected:
    ~HostGnssDevice() = default;
};

/// One of the host's own sources.
struct HostGnssDeviceInfo {
    std::int32_t deviceId = 0;
    std::wstring name;  ///< empty if nothing is connected
};

/// The host's own sources of satellite time, and the maker of devices for a plug-in's clocks.
class HostGnssDeviceList : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x17D046A0, 0xAAE6, 0x493A, {0x94, 0xF1, 0x3C, 0x1F, 0xA8, 0x6F, 0xCA, 0x1E}};

    virtual HostResult getCount(std::int32_t* count) = 0;
    virtual HostResult getInfo(std::int32_t index, HostGnssDeviceInfo* info) = 0;
    /// A new device that belongs to no name until `HostGnssDeviceHandle::attach`.
    virtual HostResult createDevice(HostGnssDevice** device) = 0;

  protected:
    ~HostGnssDeviceList() = default;
};

/// The place that the host keeps for one clock of a plug-in.
class HostGnssDeviceHandle : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x3F280DEE, 0x5386, 0x42D2, {0x9D, 0x76, 0x53, 0xEA, 0x56, 0x25, 0x3E, 0xCA}};

    /// Puts the device in this place. The host gives it the mode and source that the user chose
    /// for the place before it returns.
    virtual HostResult attach(HostGnssDevice* device) = 0;

  protected:
    ~HostGnssDeviceHandle() = default;
};

/// What event 177 brings: the host gathers the devices of all plug-ins.
class HostGnssDeviceCollection : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x6B0FE5AB, 0xFF38, 0x4168, {0x8B, 0x57, 0x81, 0xA1, 0x28, 0x42, 0x6E, 0x0C}};

    /// The place for the clock that is shown under this name, made if there is none.
    virtual HostResult open(const wchar_t* name, HostGnssDeviceHandle** handle) = 0;

  protected:
    ~HostGnssDeviceCollection() = default;
};
