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

/// The first whole batch at `offset` or behind it, which is moved there; none, and `end`, if there
/// is none. With a `failure`, which is as of `readAt`, it stays where it was.
std::optional<BatchExtent> findBatch(const Descriptor& file, std::uint64_t& offset,
                                     std::uint64_t end, int& failure);

/// The messages of the batches from `offset` to `end`; none if the file can't be opened.
std::optional<std::uint64_t> countMessages(const std::filesystem::path& path, std::uint64_t offset,
                                           std::uint64_t end);

/// Whether a whole batch of a file ends there.
bool isEndOfBatch(const Descriptor& file, std::uint64_t offset, std::uint64_t end);

/// Whether what is from `offset` to `end` is the beginning of one batch, as a process leaves it
/// that is killed while it writes. Not if the file is shorter than that.
bool isTornBatch(const Descriptor& file, std::uint64_t offset, std::uint64_t end);

}  // namespace station
