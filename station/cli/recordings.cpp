#include "station/cli/recordings.h"

#include <fmt/format.h>

#include <algorithm>

#include "station/errors.h"
#include "station/terminal_text.h"

namespace station {

void addRecordOption(CLI::App& command, std::vector<std::string>& paths) {
    command
        .add_option("--record", paths,
                    "Record into FILE, a .pcapng, a .blf, or a .log (CAN only); may be given again")
        ->type_name("FILE")
        ->expected(1)
        ->take_all();
}

void addOverwriteOption(CLI::App& command, bool& overwrites) {
    command.add_flag("--overwrite", overwrites,
                     "Overwrite recordings that are there; without it they are refused");
}

void openRecordings(RecordingSet& recordings, const std::vector<std::string>& paths,
                    bool overwrites) {
    for (const std::string& path : paths) {
        recordings.open(path, overwrites);
    }
}

void tellWhatIsLeftOut(const RecordingSet& recordings, const Summary& summary) {
    const bool hasLin =
        std::any_of(summary.channels.begin(), summary.channels.end(),
                    [](const auto& channel) { return channel.bus == BusType::Lin; });
    if (!hasLin) {
        return;
    }
    for (const std::string& path : recordings.thatRefuse(BusType::Lin)) {
        printMessage(fmt::format("{} holds CAN only: LIN channels are left out", path));
    }
}

}  // namespace station
