#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "station/recording/recording_set.h"
#include "station/session/summary.h"

namespace station {

void addRecordOption(CLI::App& command, std::vector<std::string>& paths);
void addOverwriteOption(CLI::App& command, bool& overwrites);
/// When recordings go on in other files, as the command line has it.
struct PartOptions {
    std::vector<std::string> rotate;
    std::size_t keep = 0;
    std::string minFree;
};
void addPartOptions(CLI::App& command, PartOptions& options);
/// Throws UserError.
PartRules parsePartRules(const PartOptions& options);
/// Opens all; throws UserError.
void openRecordings(RecordingSet& recordings, const std::vector<std::string>& paths,
                    bool overwrites, const PartRules& rules = {});
/// Says on standard error which recordings can't hold all channels.
void tellWhatIsLeftOut(const RecordingSet& recordings, const Summary& summary);

}  // namespace station
