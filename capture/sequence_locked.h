#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

/// A value that one thread writes often and any thread may read.
///
/// A sequence lock: the writer never waits, and a reader tries again when it met a write. The
/// counter is odd while a write is under way.
template <class T>
class SequenceLocked {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    SequenceLocked() { store(T()); }

    /// One thread at a time.
    void store(const T& value) {
        Copy copy{};
        std::memcpy(copy.data(), &value, sizeof(T));
        const std::uint32_t before = sequence.load(std::memory_order_relaxed);
        sequence.store(before + 1, std::memory_order_relaxed);
        for (std::size_t i = 0; i < wordCount; ++i) {
            // Release: who sees one of these words sees the odd counter too.
            words[i].store(copy[i], std::memory_order_release);
        }
        sequence.store(before + 2, std::memory_order_release);
    }

    T load() const {
        Copy copy{};
        std::uint32_t before = 0;
        std::uint32_t after = 0;
        do {
            before = sequence.load(std::memory_order_acquire);
            for (std::size_t i = 0; i < wordCount; ++i) {
                copy[i] = words[i].load(std::memory_order_acquire);
            }
            after = sequence.load(std::memory_order_relaxed);
        } while (before != after || before % 2 != 0);
        T value;
        std::memcpy(static_cast<void*>(&value), copy.data(), sizeof(T));
        return value;
    }

  private:
    static constexpr std::size_t wordCount =
        (sizeof(T) + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t);
    using Copy = std::array<std::uint64_t, wordCount>;

    std::atomic<std::uint32_t> sequence{0};
    std::array<std::atomic<std::uint64_t>, wordCount> words;
};
