#include "station/cli/nats_options.h"

#include "station/cli/commands.h"
#include "station/terminal_text.h"

namespace station {

void addNatsServers(CLI::App& command, NatsArguments& arguments) {
    command
        .add_option("SERVERS", arguments.servers,
                    "The NATS brokers: nats://HOST[:PORT][,HOST...], or tls:// in front")
        ->type_name("")
        ->required();
}

void addNatsOptions(CLI::App& command, NatsArguments& arguments) {
    const auto add = [&](const char* name, std::string& target, const char* what) {
        command.add_option(name, target, what)
            ->type_name("FILE")
            ->check(notEmpty())
            ->group(natsGroup);
    };
    add("--nats-options", arguments.file,
        "The user at the broker, as {\"user\": ..., \"password\": ...} or {\"token\": ...}; in a "
        "file of mode 0600. \"creds\", \"ca\", \"cert\" and \"key\" may be in it too");
    add("--nats-creds", arguments.options.credentialsFile,
        "The user at the broker, as a .creds file");
    add("--nats-ca", arguments.options.authorityFile,
        "Certificates (PEM) that brokers are trusted by; the system's by default");
    add("--nats-cert", arguments.options.certificateFile, "Our own certificate (PEM)");
    add("--nats-key", arguments.options.keyFile, "The key of that certificate (PEM)");
    command
        .add_flag_callback(
            "--nats-insecure", [&arguments] { arguments.options.checksCertificate = false; },
            "Don't check the broker's certificate")
        ->group(natsGroup);
}

NatsOptions readNatsOptions(const NatsArguments& arguments, const char* option) {
    NatsOptions options = arguments.options;
    options.servers = parseServers(option, arguments.servers);
    if (!arguments.file.empty()) {
        readNatsFile(arguments.file, options);
    }
    checkNatsOptions(options);
    if (const std::string warning = warnOfNatsOptions(options); !warning.empty()) {
        printMessage(warning);
    }
    return options;
}

}  // namespace station
