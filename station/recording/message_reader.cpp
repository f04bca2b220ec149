#include "station/recording/message_reader.h"

#include <algorithm>
#include <filesystem>
#include <string_view>

#include "station/recording/asc_reader.h"
#include "station/recording/blf_reader.h"
#include "station/recording/candump_reader.h"
#include "station/recording/csv_reader.h"
#include "station/recording/input_file.h"
#include "station/recording/mf4_reader.h"
#include "station/recording/pcapng_reader.h"

namespace station {

namespace {

template <class Reader>
std::unique_ptr<MessageReader> openWith(const std::string& path) {
    return std::make_unique<Reader>(path);
}

struct ReadableFormat {
    std::string_view firstBytes;
    std::string_view ending;
    std::unique_ptr<MessageReader> (*open)(const std::string& path);  ///< null: not for messages
};

using namespace std::string_view_literals;
constexpr ReadableFormat readableFormats[] = {
    {"\x0A\x0D\x0D\x0A", ".pcapng", openPcapng},
    {"LOGG", ".blf", openBlf},
    {"MDF     ", ".mf4", openMf4},
    {"UnFinMF ", ".mf4", openMf4},
    {"(", ".log", openWith<CandumpReader>},
    {"date ", ".asc", openWith<AscReader>},
    {"time,channel,", ".csv", openWith<CsvReader>},
};

bool isPlainText(std::string_view bytes) {
    return std::ranges::none_of(bytes, [](unsigned char c) {
        constexpr unsigned char firstPrintable = 0x20;
        return c < firstPrintable && c != '\t' && c != '\r' && c != '\n';
    });
}

}  // namespace

std::unique_ptr<MessageReader> openMessages(const std::string& path) {
    constexpr std::size_t headSize = 64;
    InputFile file(path);
    const auto bytes = file.view(0, headSize);
    const std::string_view head(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    for (const ReadableFormat& format : readableFormats) {
        if (head.starts_with(format.firstBytes)) {
            return format.open(path);
        }
    }
    // Also when it is shorter than the first bytes of its format.
    std::filesystem::path name(path);
    if (endingOf(name) == ".zst") {
        name = name.stem();
    }
    const std::string ending = endingOf(name);
    for (const ReadableFormat& format : readableFormats) {
        if (ending == format.ending && isPlainText(head)) {
            return format.open(path);
        }
    }
    return nullptr;
}

}  // namespace station
