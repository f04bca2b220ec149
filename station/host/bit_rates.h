#pragma once

#include <cstdint>

namespace station {

/// What a bus runs at, bits a second. 0: that isn't said.
struct BitRates {
    std::uint32_t nominal = 0;  ///< of CAN FD the arbitration phase; also that of LIN
    std::uint32_t data = 0;     ///< of CAN FD the data phase; 0 where the rate isn't switched

    bool operator==(const BitRates&) const = default;
};

}  // namespace station
