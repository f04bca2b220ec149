#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "fuzz/require.h"

/// A file without a name on the disk.
class MemoryFile {
  public:
    MemoryFile(const std::uint8_t* data, std::size_t size)
        : descriptor(::memfd_create("fuzz", MFD_CLOEXEC)) {
        require(descriptor >= 0 && ::write(descriptor, data, size) == static_cast<ssize_t>(size),
                "there is no memory for a file");
    }
    ~MemoryFile() { ::close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

  private:
    const int descriptor;
};
