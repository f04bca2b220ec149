#pragma once

#include <unistd.h>

#include <cstdint>
#include <span>
#include <utility>

/// Owns an open file, or none.
class Descriptor {
  public:
    explicit Descriptor(int opened = -1) : number(opened) {}
    ~Descriptor() {
        if (isOpen()) {
            ::close(number);
        }
    }
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool isOpen() const { return number >= 0; }
    int get() const { return number; }

  private:
    int number;
};

/// Fills `target` from that place on, and makes it shorter where the file ends. 0, or `errno` of
/// what keeps it from being read.
int readAt(const Descriptor& file, std::uint64_t offset, std::span<std::uint8_t>& target);
