#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "station/nats/nats_options.h"

namespace station {

/// The brokers and how to be let in, as the command line has it.
struct NatsArguments {
    std::string servers;  ///< filled by the command's own option or argument
    std::string file;
    NatsOptions options;
};

/// Adds the argument that names the brokers.
void addNatsServers(CLI::App& command, NatsArguments& arguments);

/// Of its options, in the help.
inline constexpr const char* natsGroup = "NATS";

/// Adds --nats-options, --nats-creds, --nats-ca, --nats-cert, --nats-key and --nats-insecure.
void addNatsOptions(CLI::App& command, NatsArguments& arguments);

/// All of it, checked as far as that goes without a broker. `option` is what the servers were named
/// by. Throws `UserError`.
NatsOptions readNatsOptions(const NatsArguments& arguments, const char* option);

}  // namespace station
