#include "station/recording/recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <type_traits>
#include <utility>

#include "station/errors.h"

#include "station/recording/asc_recording.h"
#include "station/recording/blf_recording.h"
#include "station/recording/bounded_name.h"
#include "station/recording/candump_recording.h"
#include "station/recording/csv_recording.h"
#include "station/recording/mf4_recording.h"
#include "station/recording/pcapng_recording.h"

namespace station {

namespace {

std::string formatOf(const std::string& path) {
    return path == AppendFile::standardOutput ? ".pcapng" : endingOf(path);
}

template <class Format>
std::unique_ptr<Recording> openAs(const std::string& path, bool overwrite,
                                  const std::string& origin) {
    if constexpr (std::is_constructible_v<Format, std::string, bool, std::string>) {
        return std::make_unique<Format>(path, overwrite, origin);
    } else {
        return std::make_unique<Format>(path, overwrite);
    }
}

struct Format : RecordingFormat {
    std::unique_ptr<Recording> (*open)(const std::string& path, bool overwrite,
                                       const std::string& origin);
    bool isForPipes = true;  ///< else its head gets the start time later, by the first message
};

/// In bytes: each has to fit into a piece of a file, with what is around it.
constexpr std::size_t longestAccount = 3000;

constexpr Format formats[] = {
    {{".pcapng", "Wireshark, all buses"}, openAs<PcapngRecording>},
    {{".blf", "compressed, all buses"}, openAs<BlfRecording>, false},
    {{".log", "candump lines, CAN and CAN FD only"}, openAs<CandumpRecording>},
    {{".mf4", "MDF 4 bus logging, all buses"}, openAs<Mf4Recording>, false},
    {{".asc", "text lines, all buses"}, openAs<AscRecording>},
    {{".csv", "a table, all buses"}, openAs<CsvRecording>},
};

const Format& findFormat(const std::string& path) {
    const std::string ending = formatOf(path);
    const auto* const found =
        std::ranges::find_if(formats, [&](const Format& entry) { return ending == entry.ending; });
    if (found == std::end(formats)) {
        throw UserError("Cannot record to \"" + path +
                        "\": its ending names no format. There are " + describeRecordingFormats() +
                        ".");
    }
    if (!found->isForPipes && AppendFile::isStreamPath(path)) {
        throw UserError("Cannot record to \"" + path + "\": it is a pipe, and the start time of " +
                        ending +
                        " is completed in the file. Name a file, or a pipe that ends in .pcapng, "
                        ".log, .asc or .csv.");
    }
    return *found;
}

}  // namespace

std::string endingOf(const std::filesystem::path& path) {
    std::string ending = path.extension().string();
    std::ranges::transform(ending, ending.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return ending;
}

void Recording::writeHead() {
    if (file.isNew() && !file.flush()) {
        throw FileError(file.getErrorText());
    }
}

void Recording::cancel() {
    writePending();
    if (getRecordsWritten() + file.getRecordsBuffered() != 0 || hasFailed()) {
        return;
    }
    file.discard();
    isCompleted = true;
    if (file.isNew()) {
        std::error_code ignored;
        std::filesystem::remove(getPath(), ignored);
    }
}

void Recording::setAccount(RecordingAccount latest) {
    account = std::move(latest);
    account.run = boundedName(account.run, longestAccount);
    for (std::string& text : account.channels) {
        text = boundedName(text, longestAccount);
    }
}

std::string Recording::describeCounts(std::size_t channel) const {
    const AppendFile::Counts& counts = file.getChannelCounts()[channel];
    const bool isKnown = channel < account.channels.size();
    return fmt::format("recorded {}, lost {}{}{}", counts.written, counts.lost, isKnown ? "; " : "",
                       isKnown ? account.channels[channel] : "");
}

bool Recording::close() {
    writePending();
    if (!std::exchange(isCompleted, true)) {
        complete();
    }
    return file.close();
}

std::unique_ptr<Recording> openFrameRecording(const std::string& path, bool overwrite,
                                              const std::string& origin) {
    if (formatOf(path) != ".pcapng") {
        throw UserError("Cannot record frames to \"" + path +
                        "\": that is done in .pcapng files only.");
    }
    return std::make_unique<PcapngRecording>(path, overwrite, origin,
                                             PcapngRecording::Contents::Frames);
}

std::unique_ptr<Recording> openRecording(const std::string& path, bool overwrite,
                                         const std::string& origin) {
    return findFormat(path).open(path, overwrite, origin);
}

void checkRecordingFormat(const std::string& path) {
    findFormat(path);
}

std::vector<RecordingFormat> getRecordingFormats() {
    return {std::begin(formats), std::end(formats)};
}

std::string describeRecordingFormats() {
    std::string text;
    for (const auto& [ending, what] : getRecordingFormats()) {
        text += fmt::format("{}{} ({})", text.empty() ? "" : ", ", ending, what);
    }
    return text;
}

}  // namespace station
