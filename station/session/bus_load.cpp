#include "station/session/bus_load.h"

#include <fmt/format.h>

#include <algorithm>

#include "station/errors.h"
#include "station/recording/bus_record.h"

namespace station {
namespace {

constexpr std::size_t canLengths = CanRecord::mostData + 1;

/// A stuff bit follows five equal bits. Among random bits that takes 31 of them, of which the stuff
/// bit before is one.
double withStuffBits(double bits) {
    constexpr double meanDistance = 30.0;
    return bits * (1.0 + 1.0 / meanDistance);
}

/// The length of the next frame that there is; of CAN FD not every one is.
std::size_t frameLength(std::size_t length) {
    return CanRecord::lengthOfCode[CanRecord::codeOf(std::min(length, canLengths - 1))];
}

}  // namespace

WireBits WireBits::ofCan(bool isExtended, std::size_t length) {
    const auto dataBits = static_cast<double>(8 * frameLength(length));
    // Acknowledgement and its delimiter, end of frame, intermission.
    constexpr double end = 1 + 1 + 7 + 3;
    if (length <= CanRecord::mostClassicData) {
        // Start, identifier, RTR, IDE, reserved, length code; 29 bits have SRR, 18 bits and one
        // more reserved bit. Then data and checksum, which is stuffed too, and its delimiter.
        const double head = 1 + 11 + 1 + 1 + 1 + 4 + (isExtended ? 1 + 18 + 1 : 0);
        return {withStuffBits(head + dataBits + 15) + 1 + end, 0.0};
    }
    // Start, identifier, RRS, IDE, FDF, reserved, BRS; 29 bits have SRR and 18 bits more.
    const double head = 1 + 11 + 1 + 1 + 1 + 1 + 1 + (isExtended ? 1 + 18 : 0);
    // Stuff count and checksum have fixed stuff bits: in front, and behind each four bits.
    constexpr std::size_t mostOfShortChecksum = 16;
    const std::size_t checked = 4 + (frameLength(length) <= mostOfShortChecksum ? 17U : 21U);
    const std::size_t checkBits = checked + 1 + checked / 4;
    // ESI and length code in front; behind, the delimiter of the checksum.
    return {withStuffBits(head) + end,
            withStuffBits(1 + 4 + dataBits) + static_cast<double>(checkBits) + 1};
}

WireBits WireBits::ofLin(std::size_t length) {
    constexpr double header = 34;  // break with its delimiter 14, synchronisation 10, identifier 10
    constexpr double byte = 10;    // with start and stop bit
    return {header + byte * static_cast<double>(length + 1), 0.0};
}

void checkBitRates(const BitRates& rates, const Channel& channel) {
    constexpr std::uint32_t least = 1000;
    constexpr std::uint32_t most = 20'000'000;
    const auto isPossible = [](std::uint32_t rate) { return rate >= least && rate <= most; };
    if (rates == BitRates()) {
        return;
    }
    if (!isPossible(rates.nominal) || (rates.data != 0 && !isPossible(rates.data))) {
        throw UserError(fmt::format("a bit rate is {} to {} bits a second", least, most));
    }
    if (rates.data != 0 && channel.busType == "LIN") {
        throw UserError(
            fmt::format("interface 0x{:X} is LIN, which has no data phase: name its "
                        "bit rate alone",
                        channel.interfaceId));
    }
    if (rates.data != 0 && rates.data < rates.nominal) {
        throw UserError("the data phase of CAN FD isn't slower than the nominal bit rate");
    }
}

BusLoad::BusLoad(BusType busType, const BitRates& bitRates) : bus(busType), state{bitRates} {
    if (bitRates.nominal == 0) {
        return;
    }
    const auto add = [&](const WireBits& bits) {
        const std::uint32_t dataRate = bitRates.data != 0 ? bitRates.data : bitRates.nominal;
        kinds.push_back({0, bits.nominal / bitRates.nominal + bits.data / dataRate});
    };
    if (bus == BusType::Lin) {
        for (std::size_t length = 0; length <= LinRecord::mostData; ++length) {
            add(WireBits::ofLin(length));
        }
        return;
    }
    for (const bool isExtended : {false, true}) {
        for (std::size_t length = 0; length < canLengths; ++length) {
            add(WireBits::ofCan(isExtended, length));
        }
    }
}

void BusLoad::note(const void* record, std::size_t size) {
    if (kinds.empty()) {
        return;
    }
    if (bus == BusType::Can && size == CanRecord::size) {
        const CanRecord can(record);
        ++kinds[can.length + (can.extended ? canLengths : 0)].count;
    } else if (bus == BusType::Lin && size == LinRecord::size) {
        ++kinds[LinRecord(record).length].count;
    }
}

double BusLoad::busySeconds() const {
    double seconds = 0.0;
    for (const Kind& kind : kinds) {
        seconds += static_cast<double>(kind.count) * kind.seconds;
    }
    return seconds;
}

void BusLoad::update(double seconds) {
    const double busy = busySeconds();
    state.lately = (busy - busyBefore) / seconds;
    state.most = std::max(state.most, state.lately);
    busyBefore = busy;
}

std::optional<BusLoadSummary> BusLoad::summarize(double seconds) const {
    if (kinds.empty()) {
        return {};
    }
    BusLoadSummary summary = state;
    summary.mean = seconds > 0.0 ? busySeconds() / seconds : 0.0;
    return summary;
}

}  // namespace station
