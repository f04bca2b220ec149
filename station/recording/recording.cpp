#include "station/recording/recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "station/errors.h"

#include "station/recording/candump_recording.h"
#include "station/recording/mf4_recording.h"
#include "station/recording/pcapng_recording.h"

namespace station {

namespace {

char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

template <class Format>
std::unique_ptr<Recording> openAs(const std::string& path, bool overwrite) {
    return std::make_unique<Format>(path, overwrite);
}

struct Format {
    const char* ending;
    const char* what;
    std::unique_ptr<Recording> (*open)(const std::string& path, bool overwrite);
};

constexpr Format formats[] = {
    {".pcapng", "Wireshark, all buses", openAs<PcapngRecording>},
    {".log", "candump lines, CAN and CAN FD only", openAs<CandumpRecording>},
    {".mf4", "MDF 4 bus logging, all buses", openAs<Mf4Recording>},
};

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

bool Recording::close() {
    writePending();
    if (!std::exchange(isCompleted, true)) {
        complete();
    }
    return file.close();
}

std::unique_ptr<Recording> openRecording(const std::string& path, bool overwrite) {
    std::string ending = std::filesystem::path(path).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(), lowerCase);
    std::string known;
    for (const Format& format : formats) {
        if (ending == format.ending) {
            return format.open(path, overwrite);
        }
        known += fmt::format("{}{} ({})", known.empty() ? "" : ", ", format.ending, format.what);
    }
    throw UserError("Cannot record to \"" + path + "\": its ending names no format. There are " +
                    known + ".");
}

}  // namespace station
