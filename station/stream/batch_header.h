#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "station/stream/publisher.h"

namespace station {

// A batch is a section of a .pcapng. Its header has in a comment what the batch is, and the length
// of what follows: a file of batches needs nothing beside it to be read.

/// As much as a header takes at most, subject and session aside.
constexpr std::size_t longestBatchHeader = 512;

/// The header of a batch whose packets and interfaces take `length` bytes, in a part of a spool in
/// front of which the measurement has that one with batches; 0: none.
std::vector<std::uint8_t> makeBatchHeader(const Batch& batch, std::size_t length,
                                          std::uint64_t partBefore);

struct BatchExtent {
    Batch batch;           ///< without its payload
    std::uint64_t size{};  ///< of all of it, with the header
    std::uint64_t partBefore{};
};
/// Reads the header at the beginning of `bytes`; none if there is no whole and valid one.
std::optional<BatchExtent> readBatchHeader(std::span<const std::uint8_t> bytes);

}  // namespace station
