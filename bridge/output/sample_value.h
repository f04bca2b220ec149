#pragma once

#include <cstdint>

namespace Kestrova::Utils::Kcom::OutputChannel {

/// The number that a sample of one of the host's data types means: of a complex one the
/// magnitude, formed without overflow. 0.0 for types that aren't numbers and for samples too short.
double sampleValue(std::int32_t dataType, const void* data, std::uint64_t size);

}  // namespace Kestrova::Utils::Kcom::OutputChannel
