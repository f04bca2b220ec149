#include "core/descriptor.h"

#include <cerrno>

int readAt(const Descriptor& file, std::uint64_t offset, std::span<std::uint8_t>& target) {
    std::size_t done = 0;
    ssize_t count = 1;
    while (done < target.size() && count != 0) {
        count = ::pread(file.get(), target.data() + done, target.size() - done,
                        static_cast<off_t>(offset + done));
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    target = target.first(done);
    return 0;
}
