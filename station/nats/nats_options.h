#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace station {

/// Which brokers there are, and by what this program and they know one another. Texts are UTF-8,
/// empty where nothing is said.
struct NatsOptions {
    std::vector<std::string> servers;  ///< "nats://HOST:PORT" or "tls://HOST:PORT"
    std::string user;
    std::string password;
    std::string token;
    std::string credentialsFile;    ///< of a user with a JWT
    std::string authorityFile;      ///< certificates that are trusted; empty: the system's
    std::string certificateFile;    ///< this program's own, in PEM
    std::string keyFile;            ///< that certificate's
    bool checksCertificate = true;  ///< of the broker
    bool isSecure() const { return servers.empty() ? false : servers.front().starts_with("tls:"); }
};

/// "nats://HOST[:PORT][,HOST[:PORT]...]", or "tls://" in front; the port is 4222 unless it is
/// named. All are of one kind. Throws `UserError`, with `option` in front of its text: also for a
/// user, password or token in it, which anybody on the machine could read.
std::vector<std::string> parseServers(std::string_view option, const std::string& text);

/// Takes over what a JSON object in the file says: "user", "password", "token", "creds", "ca",
/// "cert", "key", all texts. Throws `UserError`: unreadable, not that, or with a secret that others
/// could read.
void readNatsFile(const std::string& path, NatsOptions& options);

/// Throws `UserError` for what doesn't go together, a file that can't be read, or one with a secret
/// that others can read.
void checkNatsOptions(const NatsOptions& options);
/// What the user must know of options that can be used: a secret that goes over the network as it
/// is. Empty for nothing.
std::string warnOfNatsOptions(const NatsOptions& options);

}  // namespace station
