#include "station/recording/block_compressor.h"

#include <new>
#include <system_error>

namespace station {

BlockCompressor::BlockCompressor() {
    constexpr int windowBits = 15;
    constexpr int memoryLevel = 9;  // the fastest
    if (::deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, windowBits, memoryLevel,
                       Z_DEFAULT_STRATEGY) != Z_OK) {
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
    ::deflateEnd(&stream);
}

void BlockCompressor::compress(std::span<const std::uint8_t> from, std::vector<std::uint8_t>& to) {
    const std::size_t front = to.size();
    ::deflateReset(&stream);
    to.resize(front + ::deflateBound(&stream, from.size()));
    stream.next_in = const_cast<Bytef*>(from.data());  // of a C library that only reads it
    stream.avail_in = static_cast<uInt>(from.size());
    stream.next_out = to.data() + front;
    stream.avail_out = static_cast<uInt>(to.size() - front);
    ::deflate(&stream, Z_FINISH);  // ends at once, for there is room
    to.resize(to.size() - stream.avail_out);
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
