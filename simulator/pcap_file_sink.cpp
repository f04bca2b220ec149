#include "simulator/pcap_file_sink.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "simulator/failure.h"

namespace sim {
namespace {

constexpr std::int64_t second = 1'000'000'000;
constexpr int snapLength = 65535;

}  // namespace

PcapFileSink::PcapFileSink(const std::string& path, std::int64_t startUtc)
    : name(path),
      start(startUtc),
      format(pcap_open_dead_with_tstamp_precision(DLT_EN10MB, snapLength,
                                                  PCAP_TSTAMP_PRECISION_NANO)) {
    if (format == nullptr)
        throw Failure(ExitCode::FailedWhileRunning, "out of memory");
    file = pcap_dump_open(format, path.c_str());
    if (file == nullptr) {
        const std::string why = pcap_geterr(format);
        pcap_close(format);
        throw Failure(ExitCode::FailedWhileRunning, fmt::format("can't write {}", why));
    }
}

PcapFileSink::~PcapFileSink() {
    pcap_dump_close(file);
    pcap_close(format);
}

std::size_t PcapFileSink::send(std::span<const OutFrame> frames) {
    errno = 0;
    for (const OutFrame& frame : frames) {
        pcap_pkthdr header{};
        header.ts.tv_sec = (start + frame.due) / second;
        header.ts.tv_usec = (start + frame.due) % second;  // nanoseconds in this format
        header.caplen = header.len = static_cast<bpf_u_int32>(frame.bytes.size());
        pcap_dump(reinterpret_cast<u_char*>(file), &header, frame.bytes.data());
    }
    if (std::ferror(pcap_dump_file(file)) != 0)
        fail();
    return frames.size();
}

void PcapFileSink::finish() {
    errno = 0;
    if (pcap_dump_flush(file) != 0 || std::ferror(pcap_dump_file(file)) != 0)
        fail();
}

void PcapFileSink::fail() const {
    throw Failure(
        ExitCode::FailedWhileRunning,
        fmt::format("can't write {}: {}; the file is not complete", name, std::strerror(errno)));
}

}  // namespace sim
