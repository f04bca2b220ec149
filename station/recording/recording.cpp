#include "station/recording/recording.h"

#include <algorithm>
#include <filesystem>

#include "station/errors.h"

#include "station/recording/candump_recording.h"
#include "station/recording/pcapng_recording.h"

namespace station {

namespace {

char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

void Recording::cancel() {
    if (recordsWritten() + file.recordsBuffered() != 0 || failed()) {
        return;
    }
    file.discard();
    if (file.isNew()) {
        std::error_code ignored;
        std::filesystem::remove(path(), ignored);
    }
}

std::unique_ptr<Recording> openRecording(const std::string& path, bool overwrite) {
    std::string ending = std::filesystem::path(path).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(), lowerCase);
    if (ending == ".pcapng") {
        return std::make_unique<PcapngRecording>(path, overwrite);
    }
    if (ending == ".log") {
        return std::make_unique<CandumpRecording>(path, overwrite);
    }
    throw UserError("Cannot record to \"" + path +
                    "\": its ending names no format. Use .pcapng (CAN, CAN FD and LIN) "
                    "or .log (candump lines, CAN and CAN FD only).");
}

}  // namespace station
