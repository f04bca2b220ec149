#pragma once

#include <string>

namespace sim {

/// What decides whether made-up frames may go out on a network interface.
struct InterfaceFacts {
    bool exists = false;
    bool loopback = false;
    bool veth = false;          ///< one end of a virtual pair
    bool ownNamespace = false;  ///< in another network namespace than the machine's first process
    bool up = false;
    std::size_t mtu = 0;
};

/// Asks the kernel; what can't be found out reads as false.
InterfaceFacts inspectInterface(const std::string& name);

/// Why nothing may be sent there, or an empty text. Frames of a simulator on a vehicle's or an
/// office's network would be taken for measurements.
std::string refusalFor(const std::string& name, const InterfaceFacts& facts);

}  // namespace sim
