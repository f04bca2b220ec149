#include "station/recording/bus_record.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace station {

std::string dataText(std::span<const std::uint8_t> data) {
    return fmt::format("{:02X}", fmt::join(data, " "));
}

std::string toText(const CanRecord& record) {
    return fmt::format("0x{:X}{}: {}", record.id, record.extended ? "(ext)" : "",
                       dataText({record.data, record.length}));
}

std::string toText(const LinRecord& record) {
    return fmt::format("{}: {}", record.id, dataText({record.data, record.length}));
}

}  // namespace station
