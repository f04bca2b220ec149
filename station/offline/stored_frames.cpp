#include "station/offline/stored_frames.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <cstdio>

#include "station/errors.h"
#include "station/offline/compressed_stream.h"

namespace station {
namespace {

/// No more than the processor's caches hold.
constexpr std::uint32_t stretchMostBytes = 256 * 1024;

/// Null for standard input, and for what can't be opened: libpcap says why.
std::FILE* openStream(const std::string& path, bool& isCompressed) {
    if (path == "-") {
        return nullptr;
    }
    std::FILE* stream = openCompressedStream(path);
    isCompressed = stream != nullptr;
    if (!isCompressed) {
        stream = std::fopen(path.c_str(), "rbe");
    }
    if (stream != nullptr) {
        constexpr std::size_t bufferSize = 256 * 1024;  // by default 4096: a system call for each
        static_cast<void>(std::setvbuf(stream, nullptr, _IOFBF, bufferSize));
    }
    return stream;
}

class StoredHandle final : public CaptureHandle {
  public:
    explicit StoredHandle(StoredFrames& storedFrames) : frames(storedFrames) {}
    std::int32_t next(CapturedFrame& frame) override { return frames.next(frame); }

  private:
    StoredFrames& frames;
};

}  // namespace

StoredFrames::StoredFrames(const std::string& filePath)
    : path(filePath), file(nullptr, pcap_close) {
    char text[PCAP_ERRBUF_SIZE] = {};
    constexpr u_int precision = PCAP_TSTAMP_PRECISION_NANO;
    if (std::FILE* const opened = openStream(path, isCompressed); opened == nullptr) {
        file.reset(pcap_open_offline_with_tstamp_precision(path.c_str(), precision, text));
    } else {
        file.reset(pcap_fopen_offline_with_tstamp_precision(opened, precision, text));
        if (!file) {
            std::fclose(opened);
        }
    }
    if (!file) {
        throw UserError(ExitCode::Unreadable, fmt::format("can't read {}: {}", path, text));
    }
    if (pcap_datalink(file.get()) != DLT_EN10MB) {
        throw UserError(ExitCode::Unreadable,
                        fmt::format("{} holds no Ethernet frames; its link type is {}", path,
                                    pcap_datalink(file.get())));
    }
    std::FILE* const stream = pcap_file(file.get());
    const off_t position = ftello(stream);
    if (fseeko(stream, 0, SEEK_END) == 0) {
        fileSize = ftello(stream);
        fseeko(stream, position, SEEK_SET);
    }
    if (fetch()) {
        firstTime = nextTime;
        time = nextTime;
    }
}

StoredFrames::~StoredFrames() = default;

bool StoredFrames::fetch() {
    constexpr std::int64_t perSecond = 1'000'000'000;
    constexpr std::int64_t latestSecond = 9'000'000'000;  // what fits into 64 bits of nanoseconds
    if (atEnd) {
        return false;
    }
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    const int result = pcap_next_ex(file.get(), &header, &bytes);
    if (result != 1) {
        atEnd = true;
        if (result == PCAP_ERROR) {
            errorText = fmt::format("{} can't be read to its end: {}", path,
                                    isCompressed && std::ferror(pcap_file(file.get())) != 0
                                        ? "what is compressed in it is torn or damaged"
                                        : pcap_geterr(file.get()));
        }
        return false;
    }
    nextData = bytes;
    nextLength = std::min(header->len, header->caplen);
    isNextCut = header->caplen < header->len;
    nextTime = std::clamp<std::int64_t>(header->ts.tv_sec, 0, latestSecond) * perSecond +
               header->ts.tv_usec;
    return true;
}

/// A frame that is read ahead stays valid until the next is fetched, which happens here.
std::int32_t StoredFrames::next(CapturedFrame& frame) {
    if (nextData == nullptr && !fetch()) {
        return CaptureHandle::timeout;
    }
    if (!stretchOpen) {
        stretchOpen = true;
        stretchEnd = nextTime + stretchNanoseconds;
        stretchBytes = 0;
    }
    if (nextTime >= stretchEnd || stretchBytes >= stretchMostBytes) {
        stretchOpen = false;
        return CaptureHandle::timeout;
    }
    stretchBytes += nextLength;
    time = nextTime;
    latestTime = std::max(latestTime, time);
    frame = {nextData, nextLength, nextTime};
    nextData = nullptr;
    constexpr std::uint32_t ethernetHeaderSize = 14;  // of less, nobody knows whose it was
    if (isNextCut && (nextLength < ethernetHeaderSize || frame.isCaptureFrame())) {
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

double StoredFrames::getProgress() const {
    return fileSize > 0
               ? static_cast<double>(ftello(pcap_file(file.get()))) / static_cast<double>(fileSize)
               : 0.0;
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
