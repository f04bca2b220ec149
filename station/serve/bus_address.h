#pragma once

#include <netinet/in.h>

#include <string>

namespace station {

/// Where buses are served: "socketcand://127.0.0.1:29536"; without an address that of the loopback
/// interface, without a port 29536. Throws `UserError`.
sockaddr_in parseBusAddress(const std::string& text);

/// "127.0.0.1:29536".
std::string toText(const sockaddr_in& address);

}  // namespace station
