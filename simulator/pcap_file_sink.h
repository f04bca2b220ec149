#pragma once

#include <memory>
#include <string>

#include "simulator/frame_sink.h"

struct pcap;
struct pcap_dumper;

namespace sim {

/// Writes frames into a capture file with nanosecond times, each at the time when it is due.
class PcapFileSink : public FrameSink {
  public:
    /// `path`: replaced if it is there; "-" is the standard output. `startUtc`: nanoseconds since
    /// 1970. Throws `Failure` when the file can't be made.
    PcapFileSink(const std::string& path, std::int64_t startUtc);
    ~PcapFileSink() override;
    PcapFileSink(const PcapFileSink&) = delete;
    PcapFileSink& operator=(const PcapFileSink&) = delete;

    std::size_t longestFrame() const override { return 65535; }
    std::size_t send(std::span<const OutFrame> frames) override;
    void finish() override;

  private:
    [[noreturn]] void fail() const;

    const std::string name;
    const std::int64_t start;
    pcap* const format;
    pcap_dumper* file = nullptr;
};

}  // namespace sim
