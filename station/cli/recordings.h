#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "station/recording/recording_set.h"
#include "station/session/summary.h"

namespace station {

/// A number and a unit: bytes of "2GB" or "256KiB", nanoseconds of "1h" or "200ms". Throw
/// UserError.
std::uint64_t parseSize(const char* option, const std::string& text);
std::int64_t parseTime(const char* option, const std::string& text);

void addOverwriteOption(CLI::App& command, bool& overwrites);
/// When recordings go on in other files, as the command line has it.
struct PartOptions {
    std::vector<std::string> rotate;
    std::size_t keep = 0;
    std::string minFree;
    std::string compression;
};
void addPartOptions(CLI::App& command, PartOptions& options);
/// With a compressor, if parts are to be compressed. Throws UserError.
PartRules parsePartRules(const PartOptions& options);
/// Throws UserError for options that none of these recordings follows, as there is no file among
/// them. A stream heeds the least room on the disk.
void refuseUnusedParts(const PartOptions& options, const std::vector<std::string>& paths,
                       bool isStreamed);
/// Opens all; throws UserError.
void openRecordings(RecordingSet& recordings, const std::vector<std::string>& paths,
                    bool overwrites, const PartRules& rules = {});
/// Whether one of them goes to standard output, which then takes nothing else. Throws UserError if
/// another one or JSON is to go there too.
bool takesStandardOutput(const std::vector<std::string>& paths, bool json);
/// Says on standard error which recordings can't hold all channels.
void reportLeftOut(const RecordingSet& recordings, const Summary& summary);

/// What is printed at the end: JSON, or a table unless `quiet`, on standard error if recordings
/// take standard output.
void printReport(const Summary& summary, const std::vector<std::string>& recordings, bool json,
                 bool quiet);

}  // namespace station
