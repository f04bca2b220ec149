#include "bridge/output/sample_value.h"

#include <array>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstring>

namespace Kestrova::Utils::Kcom::OutputChannel {
namespace {

template <typename T>
double toDouble(T value) {
    return static_cast<double>(value);
}
/// In the precision of the parts.
template <typename T>
double toDouble(std::complex<T> value) {
    return std::hypot(value.real(), value.imag());
}

template <typename T>
double read(const void* data, std::uint64_t size) {
    if (size < sizeof(T)) {
        return 0.0;
    }
    T value{};
    std::memcpy(&value, data, sizeof(T));
    return toDouble(value);
}

/// By data type code.
constexpr std::array readers = {
    &read<std::uint8_t>,         &read<std::int8_t>,
    &read<std::int16_t>,         &read<std::uint16_t>,
    &read<std::int32_t>,         &read<float>,
    &read<std::int64_t>,         &read<double>,
    &read<std::uint32_t>,        &read<std::complex<float>>,
    &read<std::complex<double>>,
};

}  // namespace

double sampleValue(std::int32_t dataType, const void* data, std::uint64_t size) {
    const auto type = static_cast<std::size_t>(dataType);
    return dataType >= 0 && type < readers.size() ? readers[type](data, size) : 0.0;
}

}  // namespace Kestrova::Utils::Kcom::OutputChannel
