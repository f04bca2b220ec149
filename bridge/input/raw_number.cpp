#include "bridge/input/raw_number.h"

#include <concepts>
#include <cstring>

namespace Kestrova::Utils::Kcom::InputChannel {
namespace {

template <typename T>
RawNumber read(std::span<const std::byte> element) {
    T number{};
    if (element.size() >= sizeof(T)) {
        std::memcpy(&number, element.data(), sizeof(T));
    }
    if constexpr (std::integral<T>) {
        return std::int64_t{number};
    } else {
        return double{number};
    }
}

}  // namespace

RawNumber readRawNumber(std::int32_t dataType, std::span<const std::byte> element, ScaleLine line) {
    switch (dataType) {
        case 0:
            return read<std::uint8_t>(element);
        case 1:
            return read<std::int8_t>(element);
        case 2:
            return read<std::int16_t>(element);
        case 3:
            return read<std::uint16_t>(element);
        case 4:
            return read<std::int32_t>(element);
        case 5:
            return read<float>(element);
        case 6:
            return read<std::int64_t>(element);
        case 7:
            return read<double>(element);
        case 8:
            return read<std::uint32_t>(element);
        case 15:
        case 16:
        case 17:
        case 18:
            return std::get<double>(read<double>(element)) * line.scale + line.offset;
        default:
            return std::int64_t{0};
    }
}

}  // namespace Kestrova::Utils::Kcom::InputChannel
