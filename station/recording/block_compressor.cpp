#include "station/recording/block_compressor.h"

#include <new>
#include <system_error>

namespace station {
namespace {

constexpr int fastestLevel = 1;

}  // namespace

BlockCompressor::BlockCompressor()
    : compressor(::libdeflate_alloc_compressor(fastestLevel), ::libdeflate_free_compressor) {
    if (!compressor) {
        throw std::bad_alloc();
    }
}

BlockCompressor::~BlockCompressor() {
    if (thread.joinable()) {
        {
            const LockGuard guard(lock);
            isEnding = true;
            changed.notify_all();
        }
        thread.join();
    }
}

void BlockCompressor::compress(std::span<const std::uint8_t> from, std::vector<std::uint8_t>& to) {
    const std::size_t front = to.size();
    to.resize(front + ::libdeflate_zlib_compress_bound(compressor.get(), from.size()));
    to.resize(front + ::libdeflate_zlib_compress(compressor.get(), from.data(), from.size(),
                                                 to.data() + front, to.size() - front));
}

void BlockCompressor::begin(std::span<const std::uint8_t> from, std::vector<std::uint8_t>& to) {
    source = from;
    target = &to;
    try {
        if (!thread.joinable()) {
            thread = std::thread([this] { run(); });
        }
    } catch (const std::system_error&) {  // there can be no more threads: then without
        compress(from, to);
        return;
    }
    const LockGuard guard(lock);
    isWanted = true;
    changed.notify_all();
}

void BlockCompressor::wait() {
    const LockGuard guard(lock);
    while (isWanted) {
        changed.wait(lock);
    }
}

void BlockCompressor::run() {
    for (;;) {
        {
            const LockGuard guard(lock);
            while (!isWanted && !isEnding) {
                changed.wait(lock);
            }
            if (!isWanted) {
                return;
            }
        }
        compress(source, *target);
        const LockGuard guard(lock);
        isWanted = false;
        changed.notify_all();
    }
}

}  // namespace station
