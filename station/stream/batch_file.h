#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>

#include "core/descriptor.h"
#include "station/stream/batch_header.h"

namespace station {

// Reading a file of batches, some of whose bytes may be damaged.

Descriptor openForReading(const std::filesystem::path& path);

/// The batch at `offset` of a file whose whole batches end at `end`. `failure` is as of `readAt`.
std::optional<BatchExtent> headerAt(const Descriptor& file, std::uint64_t offset, std::uint64_t end,
                                    int& failure);

/// The first whole batch at `offset` or behind it, which is moved there; none, and `end`, if there
/// is none. With a failure it stays where it was.
std::optional<BatchExtent> findBatch(const Descriptor& file, std::uint64_t& offset,
                                     std::uint64_t end, int& failure);

}  // namespace station
