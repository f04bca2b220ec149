#include "benchmarks/stored_traffic.h"

#include <pcap/pcap.h>

#include <memory>
#include <stdexcept>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

void put(Bytes& bytes, std::uint64_t value, int width) {
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

void putHeader(Bytes& frame, std::uint16_t cmId) {
    frame.assign(12, 0x02);
    put(frame, 0x99FE, 2);
    put(frame, cmId, 2);
    put(frame, 0, 2);       // counter
    put(frame, 0x0303, 2);  // version and message type data
    put(frame, 0x0002, 2);  // data type CAN
    put(frame, 0, 4);
}

void putMessage(Bytes& frame, std::uint32_t interfaceId, std::uint64_t timestamp,
                std::uint32_t number) {
    put(frame, interfaceId, 4);
    put(frame, timestamp, 8);
    put(frame, 4 + 1 + Traffic::dataBytes + 2, 2);
    put(frame, 0, 2);
    put(frame, 0x80000000U | number, 4);
    put(frame, Traffic::dataBytes, 1);
    put(frame, number, 8);
    put(frame, 0, 2);
}

}  // namespace

void writeTraffic(const std::string& path, const Traffic& traffic) {
    const std::unique_ptr<pcap_t, void (*)(pcap_t*)> handle(
        pcap_open_dead_with_tstamp_precision(DLT_EN10MB, 65536, PCAP_TSTAMP_PRECISION_NANO),
        pcap_close);
    pcap_dumper_t* const file = pcap_dump_open(handle.get(), path.c_str());
    if (file == nullptr) {
        throw std::runtime_error(pcap_geterr(handle.get()));
    }
    constexpr std::uint64_t start = 1'700'000'000'000'000'000;
    constexpr std::uint64_t perMessage = 1000;  // nanoseconds
    Bytes frame;
    std::uint32_t sent = 0;
    for (std::uint32_t i = 0; sent < traffic.messages; ++i) {
        putHeader(frame, static_cast<std::uint16_t>(1 + i % traffic.modules));
        for (std::uint32_t k = 0; k < traffic.messagesPerFrame; ++k, ++sent) {
            putMessage(frame, 1 + sent % Traffic::interfaces, start + sent * perMessage, sent);
        }
        pcap_pkthdr header{};
        const std::uint64_t time = start + sent * perMessage;
        header.ts.tv_sec = static_cast<time_t>(time / 1'000'000'000);
        header.ts.tv_usec = static_cast<suseconds_t>(time % 1'000'000'000);
        header.len = static_cast<bpf_u_int32>(frame.size());
        header.caplen = header.len;
        pcap_dump(reinterpret_cast<u_char*>(file), &header, frame.data());
    }
    pcap_dump_close(file);
}
