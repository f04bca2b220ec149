#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <string>

#include "station/cli/live_view.h"
#include "station/cli/nats_options.h"
#include "station/stop_signal.h"
#include "station/stream/stream.h"

namespace station {

/// The stream of a measurement, as the command line has it.
struct StreamArguments {
    NatsArguments nats;  ///< without servers there is no stream
    std::string station;
    std::string split = "station";
    std::string spool;
    std::string spoolLimit = "4GiB";
    std::string batch = "256KiB";
    std::string age = "200ms";
    double wait = 5.0;  ///< seconds
    std::string streamName;
    int replicas = 0;
    std::string maxAge;
    std::string maxBytes;

    CLI::App* command = nullptr;
    /// Throws UserError if it isn't, but others of its options are there.
    bool isWanted() const;
    /// Takes those that the command line doesn't have: by the options' names, as a setup has them.
    /// Throws UserError.
    void addDefaults(const std::map<std::string, std::string>& options);
    /// Those that were given, in that form. Files are named in full.
    std::map<std::string, std::string> getGiven() const;
};

/// Adds --stream and what belongs to it.
void addStreamOptions(CLI::App& command, StreamArguments& arguments);
/// Those of them that a spool without a measurement needs; the servers aren't among them.
void addSendingOptions(CLI::App& command, StreamArguments& arguments);

/// `servers` is what the brokers were named by. Throws UserError.
StreamSettings parseStreamSettings(const StreamArguments& arguments,
                                   const char* servers = "--stream");

/// Waits until the broker has all that is in the spool, for so long at most, or until a stop
/// request comes; then ends the stream. What is left is reported.
void finishStream(Stream& stream, double seconds, LiveView& view, StopSignal& stop);
/// Of a program that has ended a stream: whether something is lost, or another station has the
/// name.
bool hasFailed(const StreamSummary& stream);

}  // namespace station
