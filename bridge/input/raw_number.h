#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <type_traits>
#include <utility>
#include <variant>

namespace Kestrova::Utils::Kcom::InputChannel {

/// One element of a sample as the host keeps it: all of its types fit into one of the two.
using RawNumber = std::variant<std::int64_t, double>;

/// The line by which data types 15 to 18 are scaled.
struct ScaleLine {
    double scale = 1.0;
    double offset = 0.0;
};

/// Reads an element of one of the host's data types. 0 for types that aren't numbers and for bytes
/// too few.
RawNumber readRawNumber(std::int32_t dataType, std::span<const std::byte> element, ScaleLine line);

/// The number of type T nearest to `number`, 0 for one that is none.
template <typename T>
T nearest(std::int64_t number) {
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(number);
    } else {
        using Limits = std::numeric_limits<T>;
        return std::in_range<T>(number) ? static_cast<T>(number)
               : number < 0             ? Limits::min()
                                        : Limits::max();
    }
}
template <typename T>
T nearest(double number) {
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(number);
    } else {
        // The upper limit may not be a double; one more, a power of two, is: half of it is whole.
        using Limits = std::numeric_limits<T>;
        const double above =
            2.0 * static_cast<double>(Limits::max() / 2 + 1);  // NOLINT(bugprone-integer-division)
        return number >= above                                ? Limits::max()
               : number <= static_cast<double>(Limits::min()) ? Limits::min()
               : number == number                             ? static_cast<T>(number)
                                                              : T();
    }
}
template <typename T>
T nearest(const RawNumber& number) {
    return std::visit([](auto raw) { return nearest<T>(raw); }, number);
}

}  // namespace Kestrova::Utils::Kcom::InputChannel
