#include "station/nats/nats_options.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "core/descriptor.h"
#include "core/parse_number.h"
#include "station/errors.h"

namespace station {
namespace {

constexpr std::size_t longestOptions = 64 * 1024;  // bytes of the file

struct Setting {
    const char* name;
    std::string NatsOptions::*value;
    bool isSecret;
};
constexpr Setting settings[] = {
    {"user", &NatsOptions::user, false},        {"password", &NatsOptions::password, true},
    {"token", &NatsOptions::token, true},       {"creds", &NatsOptions::credentialsFile, false},
    {"ca", &NatsOptions::authorityFile, false}, {"cert", &NatsOptions::certificateFile, false},
    {"key", &NatsOptions::keyFile, false}};

bool isPort(std::string_view text) {
    return parseNumber<std::uint16_t>(text).value_or(0) != 0;
}

/// "HOST", "HOST:PORT", "[IPV6]" or "[IPV6]:PORT", with the port behind it in any case.
std::string withPort(std::string_view place) {
    const std::size_t bracket = place.find(']');
    const std::size_t colon = place.find(':', bracket == place.npos ? 0 : bracket);
    const std::string_view host = place.substr(0, colon);
    const std::string_view port = colon == place.npos ? "4222" : place.substr(colon + 1);
    const bool isBracketed = host.starts_with('[') && host.ends_with(']') && host.size() > 2;
    const std::string_view bad = isBracketed ? "/ \t@,\"\\?#" : "/ \t@,\"\\?#[]:";
    if (host.empty() || host.find_first_of(bad) != host.npos || !isPort(port)) {
        return {};
    }
    return fmt::format("{}:{}", host, port);
}

bool isForOthers(const struct stat& status) {
    return (status.st_mode & (S_IRWXG | S_IRWXO)) != 0;
}

bool isLoopback(std::string_view server) {
    const std::string_view place = server.substr(server.find("://") + 3);
    return place.starts_with("127.") || place.starts_with("localhost:") ||
           place.starts_with("[::1]");
}

std::string readOptions(const std::string& path, bool& isOpenToOthers) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        throw UserError(
            fmt::format("--nats-options: {} can't be read: {}", path, std::strerror(errno)));
    }
    if (!S_ISREG(status.st_mode)) {
        throw UserError(fmt::format("--nats-options: {} is not a regular file", path));
    }
    isOpenToOthers = isForOthers(status);
    std::string text(longestOptions, '\0');
    const ssize_t size = ::read(file.get(), text.data(), text.size());
    if (size < 0) {
        throw UserError(
            fmt::format("--nats-options: {} can't be read: {}", path, std::strerror(errno)));
    }
    text.resize(static_cast<std::size_t>(size));
    return text;
}

}  // namespace

std::vector<std::string> parseServers(std::string_view option, const std::string& text) {
    constexpr std::string_view separator = "://";
    const std::size_t at = text.find(separator);
    const std::string scheme = text.substr(0, std::min(at, text.size()));
    if (at == text.npos || (scheme != "nats" && scheme != "tls")) {
        throw UserError(fmt::format(
            "{}: a broker is written nats://HOST:4222, or tls://HOST:4222; more of them behind "
            "commas",
            option));
    }
    if (text.find('@') != text.npos) {  // not repeated here: messages go into logs
        throw UserError(fmt::format(
            "{}: user, password and token don't belong into the address, where all users of the "
            "machine can read them; write {{\"user\": \"...\", \"password\": \"...\"}} or "
            "{{\"token\": \"...\"}} into a file of mode 0600 and name it with --nats-options",
            option));
    }
    std::vector<std::string> servers;
    for (std::size_t from = at + separator.size(); from <= text.size();) {
        const std::size_t comma = std::min(text.find(',', from), text.size());
        std::string_view place = std::string_view(text).substr(from, comma - from);
        if (const std::string front = scheme + std::string(separator); place.starts_with(front)) {
            place.remove_prefix(front.size());
        }
        const std::string server = withPort(place);
        if (server.empty()) {
            throw UserError(
                fmt::format("{}: the address of broker {} is no HOST or HOST:PORT; one of several "
                            "is named like "
                            "the first, all nats:// or all tls://",
                            option, servers.size() + 1));
        }
        servers.push_back(fmt::format("{}{}{}", scheme, separator, server));
        from = comma + 1;
    }
    return servers;
}

void readNatsFile(const std::string& path, NatsOptions& options) {
    bool isOpenToOthers = false;
    const std::string text = readOptions(path, isOpenToOthers);
    const auto json = nlohmann::json::parse(text, nullptr, false);
    if (!json.is_object()) {
        throw UserError(
            fmt::format("--nats-options: {} is no JSON object such as {{\"user\": "
                        "\"...\", \"password\": \"...\"}}",
                        path));
    }
    for (const auto& [name, value] : json.items()) {
        const auto* const found = std::ranges::find_if(
            settings, [&key = name](const Setting& setting) { return key == setting.name; });
        if (found == std::end(settings) || !value.is_string()) {
            throw UserError(
                fmt::format("--nats-options: \"{}\" in {} is none of the texts user, "
                            "password, token, creds, ca, cert, key",
                            name, path));
        }
        if (found->isSecret && isOpenToOthers) {
            throw UserError(fmt::format(
                "--nats-options: others can read the {} in {}; \"chmod 600 {}\" keeps it to you",
                name, path, path));
        }
        if (std::string& target = options.*(found->value); target.empty()) {
            target = value.get<std::string>();
        }
    }
}

void checkNatsOptions(const NatsOptions& options) {
    const struct {
        const char* option;
        const std::string& path;
        bool isSecret;
    } files[] = {{"--nats-creds", options.credentialsFile, true},
                 {"--nats-ca", options.authorityFile, false},
                 {"--nats-cert", options.certificateFile, false},
                 {"--nats-key", options.keyFile, true}};
    for (const auto& [option, path, isSecret] : files) {
        struct stat status {};
        if (isSecret && !path.empty() && ::stat(path.c_str(), &status) == 0 &&
            isForOthers(status)) {
            throw UserError(fmt::format("{}: others can read {}; \"chmod 600 {}\" keeps it to you",
                                        option, path, path));
        }
        if (!path.empty() && ::access(path.c_str(), R_OK) != 0) {
            throw UserError(
                fmt::format("{}: {} can't be read: {}", option, path, std::strerror(errno)));
        }
    }
    if (options.certificateFile.empty() != options.keyFile.empty()) {
        throw UserError("--nats-cert and --nats-key are of use together only: name both");
    }
    if (options.password.empty() != options.user.empty()) {
        throw UserError("--nats-options: \"user\" and \"password\" are of use together only");
    }
    const bool needsSecure = !options.authorityFile.empty() || !options.certificateFile.empty() ||
                             !options.checksCertificate;
    if (needsSecure && !options.isSecure()) {
        throw UserError(
            "certificates are for brokers with TLS: write tls://HOST:4222, or leave out --nats-ca, "
            "--nats-cert, --nats-key and --nats-insecure");
    }
}

std::string warnOfNatsOptions(const NatsOptions& options) {
    const bool isPlain = !options.isSecure() && !std::ranges::all_of(options.servers, isLoopback);
    return isPlain && !(options.password.empty() && options.token.empty())
               ? "the password or token goes to the broker without encryption; write tls:// "
                 "instead of nats://, or name a .creds file, which is signed with and never sent"
               : "";
}

}  // namespace station
