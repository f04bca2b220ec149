#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "station/recording/recording.h"
#include "station/session/summary.h"

namespace station {

/// What a message takes on the wire, with the pause that follows it, in bits of each phase.
///
/// CAN: from the start of frame to the intermission (ISO 11898-1), with the stuff bits that random
/// bits have in the mean, one in 30; the worst case is one in 4. More than 8 data bytes are CAN FD,
/// with its bit rate switched: the record doesn't say so of shorter ones, which count as
/// classic. LIN (ISO 17987): a header of 34 bits and 10 bits for each data byte and the checksum,
/// without the 40 % that the nodes may take longer.
struct WireBits {
    double nominal = 0.0;
    double data = 0.0;  ///< at the data phase's rate, or at the nominal one if there is no other

    static WireBits ofCan(bool isExtended, std::size_t length);
    static WireBits ofLin(std::size_t length);
};

/// Throws `UserError` for rates that no bus of that channel can have.
void checkBitRates(const BitRates& rates, const Channel& channel);

/// For which share of the time a channel's bus is taken. A message costs the increment of a count;
/// the rest is worked out once a second.
class BusLoad {
  public:
    BusLoad() = default;
    /// Without a nominal rate nothing is counted.
    BusLoad(BusType busType, const BitRates& bitRates);

    /// `size`: as the bus's record has it, otherwise it isn't counted.
    void note(const void* record, std::size_t size);
    /// Of the last `seconds`, which began when this was called before.
    void update(double seconds);
    /// `seconds`: since the start. Empty without a bit rate.
    std::optional<BusLoadSummary> summarize(double seconds) const;

  private:
    struct Kind {
        std::uint64_t count = 0;
        double seconds = 0.0;  ///< that one message takes
    };

    double busySeconds() const;

    BusType bus = BusType::Can;
    BusLoadSummary state;
    std::vector<Kind> kinds;  ///< by length, of CAN first those of 11 bits
    double busyBefore = 0.0;
};

}  // namespace station
