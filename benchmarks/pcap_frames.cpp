#include "benchmarks/pcap_frames.h"

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace {

/// No more in one pass than the processor's caches hold.
constexpr std::uint32_t mostBytesInPass = 256 * 1024;

pcap_t* openFile(const std::string& path) {
    char error[PCAP_ERRBUF_SIZE];
    pcap_t* const file =
        pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, error);
    return file != nullptr ? file : throw std::runtime_error(error);
}

class PcapFramesHandle final : public CaptureHandle {
  public:
    explicit PcapFramesHandle(PcapFrames& pcapFrames) : frames(pcapFrames) {}
    std::int32_t next(CapturedFrame& frame) override { return frames.next(frame); }

  private:
    PcapFrames& frames;
};

}  // namespace

PcapFrames::PcapFrames(const std::string& filePath)
    : path(filePath),
      file(openFile(filePath), pcap_close),
      fileSize(static_cast<double>(std::filesystem::file_size(filePath))) {
    fetch();  // so that the counter stands at its time
}

double PcapFrames::getProgress() const {
    return static_cast<double>(std::ftell(pcap_file(file.get()))) / fileSize;
}

bool PcapFrames::fetch() {
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    atEnd = pcap_next_ex(file.get(), &header, &data) != 1;
    if (!atEnd) {
        time = std::int64_t{header->ts.tv_sec} * 1'000'000'000 + header->ts.tv_usec;
        ahead = {data, header->caplen, time};
    }
    return !atEnd;
}

std::int32_t PcapFrames::next(CapturedFrame& frame) {
    if (bytesInPass >= mostBytesInPass) {
        bytesInPass = 0;
        return CaptureHandle::timeout;
    }
    if (ahead.data == nullptr && !fetch()) {
        return CaptureHandle::timeout;
    }
    bytesInPass += ahead.length;
    frame = std::exchange(ahead, {});
    return CaptureHandle::gotFrame;
}

std::int32_t PcapFrames::findAllDevices(std::vector<CaptureInterface>& devices, std::string&) {
    devices = {{path, "stored frames"}};
    return 0;
}

std::unique_ptr<CaptureHandle> PcapFrames::openLive(const std::string&, std::int32_t, bool,
                                                    std::int32_t, std::string&) {
    return std::make_unique<PcapFramesHandle>(*this);
}

std::int32_t PcapFrames::lookupNet(const std::string&, std::uint32_t& net, std::uint32_t& mask,
                                   std::string&) {
    net = 0;
    mask = 0;
    return 0;
}
