#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "station/recording/message_filter.h"
#include "station/stop_signal.h"

namespace station {

/// Which messages of a recording a command takes.
struct MessageOptions {
    std::string from;
    std::string to;
    std::vector<std::string> channels;
    std::vector<std::string> identifiers;
};

void addFilterOptions(CLI::App& command, MessageOptions& options);
/// What isn't given in `options` lets all pass.
MessageFilter::Options readFilter(const MessageOptions& options);

/// The databases that messages are decoded by.
CLI::Option* addDatabaseOption(CLI::App& command, std::vector<std::string>& databases);

/// How far it has got and how fast, in one line on a terminal that is written over and over.
class Progress {
  public:
    explicit Progress(bool wanted);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// `messages` up to now.
    void show(double share, std::uint64_t messages);

  private:
    using Clock = std::chrono::steady_clock;
    const bool shown;
    bool written = false;
    const Clock::time_point start = Clock::now();
    Clock::time_point last;
};

/// Throws UserError, with the names that there are, if `unknown` has any.
void refuseUnknownChannels(const std::vector<std::string>& unknown,
                           const std::vector<std::string>& there);
/// The same for the channels of a recording, of which it reads as much as it takes to find all
/// names. Of one that is torn none is refused: the channel may be in what can't be read.
void findChannels(std::vector<std::string> names, const std::string& recording, StopSignal& stop);

}  // namespace station
