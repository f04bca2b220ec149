#pragma once

#include <unistd.h>

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
