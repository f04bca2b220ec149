#include "station/offline/compressed_stream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include "station/recording/input_file.h"

namespace station {
namespace {

/// What is behind such a stream.
struct Compressed {
    explicit Compressed(const std::string& path) : file(path) {}

    InputFile file;
    std::uint64_t position = 0;
};

ssize_t readOn(void* cookie, char* buffer, std::size_t size) {
    auto& [file, position] = *static_cast<Compressed*>(cookie);
    const auto bytes = file.view(position, size);
    if (bytes.empty() && !file.getErrorText().empty()) {
        errno = EIO;
        return -1;
    }
    std::copy(bytes.begin(), bytes.end(), buffer);
    position += bytes.size();
    return static_cast<ssize_t>(bytes.size());
}

int seek(void* cookie, off64_t* offset, int whence) {
    auto& [file, position] = *static_cast<Compressed*>(cookie);
    const auto base = static_cast<off64_t>(whence == SEEK_SET   ? 0
                                           : whence == SEEK_CUR ? position
                                                                : file.getSize());
    if (base + *offset < 0) {
        errno = EINVAL;
        return -1;
    }
    *offset += base;
    position = static_cast<std::uint64_t>(*offset);
    return 0;
}

int close(void* cookie) {
    delete static_cast<Compressed*>(cookie);  // NOLINT(cppcoreguidelines-owning-memory)
    return 0;
}

}  // namespace

std::FILE* openCompressedStream(const std::string& path) {
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) {
        return nullptr;
    }
    auto compressed = std::make_unique<Compressed>(path);
    if (!compressed->file.isCompressed()) {
        return nullptr;
    }
    std::FILE* const stream = ::fopencookie(
        compressed.get(), "r", {.read = readOn, .write = nullptr, .seek = seek, .close = close});
    if (stream != nullptr) {
        static_cast<void>(compressed.release());
    }
    return stream;
}

}  // namespace station
