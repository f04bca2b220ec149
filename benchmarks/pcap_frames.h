#pragma once

#include <pcap/pcap.h>

#include <cstdint>
#include <memory>
#include <string>

#include "capture/capture_port.h"
#include "core/performance_counter.h"

/// The frames of a .pcap file by the call that reads them live too, `pcap_next_ex`, as the one
/// interface of a capture port, with a performance counter that shows the time of the frame read
/// last. The station reads files in place, which is three times as quick; what is measured here is
/// what the capture core costs beside libpcap.
class PcapFrames final : public CapturePort, public PerformanceCounter {
  public:
    /// Throws `std::runtime_error` where libpcap can't open it.
    explicit PcapFrames(const std::string& filePath);

    bool isAtEnd() const { return atEnd; }
    /// How much of the file was read, 0.0 to 1.0.
    double getProgress() const;
    /// Reads the next frame as a `CaptureHandle` does.
    std::int32_t next(CapturedFrame& frame);

    std::uint64_t getCount() const override { return static_cast<std::uint64_t>(time); }
    std::uint64_t getFrequency() const override { return 1'000'000'000; }
    std::int64_t getRealNanoseconds() const override { return time; }

    std::int32_t findAllDevices(std::vector<CaptureInterface>& devices,
                                std::string& error) override;
    std::unique_ptr<CaptureHandle> openLive(const std::string& name, std::int32_t snapLength,
                                            bool promiscuous, std::int32_t timeoutMs,
                                            std::string& error) override;
    std::int32_t lookupNet(const std::string& name, std::uint32_t& net, std::uint32_t& mask,
                           std::string& error) override;

  private:
    bool fetch();

    const std::string path;
    const std::unique_ptr<pcap_t, void (*)(pcap_t*)> file;
    const double fileSize;
    CapturedFrame ahead;  ///< the next one, where it was read already
    std::int64_t time = 0;
    std::uint32_t bytesInPass = 0;
    bool atEnd = false;
};
