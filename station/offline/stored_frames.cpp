#include "station/offline/stored_frames.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace station {
namespace {

/// No more than the processor's caches hold.
constexpr std::uint32_t stretchMostBytes = 256 * 1024;
/// Of a stored time, nanoseconds since 1970: whatever the file says, a day can be added.
constexpr std::int64_t latestOfAll =
    std::numeric_limits<std::int64_t>::max() - std::int64_t{86400} * 1'000'000'000;

class StoredHandle final : public CaptureHandle {
  public:
    explicit StoredHandle(StoredFrames& storedFrames) : frames(storedFrames) {}
    std::int32_t next(CapturedFrame& frame) override { return frames.next(frame); }

  private:
    StoredFrames& frames;
};

}  // namespace

StoredFrames::StoredFrames(const std::string& filePath) : path(filePath), file(filePath) {
    if (fetch()) {
        firstTime = ahead.time;
        time = ahead.time;
    }
}

bool StoredFrames::fetch() {
    isAhead = !atEnd && file.next(ahead);
    ahead.time = std::min(ahead.time, latestOfAll);
    atEnd = !isAhead;
    return isAhead;
}

/// A frame that is read ahead stays valid until the next is fetched, which happens here.
std::int32_t StoredFrames::next(CapturedFrame& frame) {
    if (!isAhead && !fetch()) {
        return CaptureHandle::timeout;
    }
    if (!stretchOpen) {
        stretchOpen = true;
        stretchEnd = ahead.time + stretchNanoseconds;
        stretchBytes = 0;
    }
    if (ahead.time >= stretchEnd || stretchBytes >= stretchMostBytes) {
        stretchOpen = false;
        return CaptureHandle::timeout;
    }
    stretchBytes += ahead.length;
    time = ahead.time;
    latestTime = std::max(latestTime, time);
    frame = {ahead.data, ahead.length, ahead.time};
    isAhead = false;
    constexpr std::uint32_t ethernetHeaderSize = 14;  // of less, nobody knows whose it was
    const bool isCut = ahead.length < ahead.wholeLength;
    if (isCut && (frame.length < ethernetHeaderSize || frame.isCaptureFrame())) {
        ++cutFrames;
    }
    return CaptureHandle::gotFrame;
}

std::string StoredFrames::getCutText() const {
    return cutFrames == 0
               ? ""
               : fmt::format(
                     "{} Ethernet frames were cut when they were stored, and messages in "
                     "them are missing; capture with a snap length that takes whole frames",
                     cutFrames);
}

std::int32_t StoredFrames::findAllDevices(std::vector<CaptureInterface>& devices, std::string&) {
    devices = {{path, "stored frames"}};
    return 0;
}

std::unique_ptr<CaptureHandle> StoredFrames::openLive(const std::string&, std::int32_t, bool,
                                                      std::int32_t, std::string&) {
    return std::make_unique<StoredHandle>(*this);
}

std::int32_t StoredFrames::lookupNet(const std::string&, std::uint32_t& net, std::uint32_t& mask,
                                     std::string&) {
    net = 0;
    mask = 0;
    return 0;
}

}  // namespace station
