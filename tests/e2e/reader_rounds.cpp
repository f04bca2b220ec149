#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "capture/cmp_packet_reader.h"
#include "capture/pcap_port.h"
#include "station/offline/direct_output.h"
#include "station/offline/pass_through_clock.h"

namespace {

class NoSink final : public station::SampleSink {
    void onSample(std::uint32_t, const void*, std::size_t, double) override {}
};

auto openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

std::int64_t realNanoseconds() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

/// Whether a datagram on the loopback is stamped between its sending and its reading.
bool isStampedOnReceipt() {
    std::string error;
    const auto handle = PcapPort().openLive("lo", 65536, false, 1, error);
    sockaddr_in discard{AF_INET, htons(9), {htonl(INADDR_LOOPBACK)}, {}};
    const int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const std::int64_t sentAt = realNanoseconds();
    sendto(sender, "", 1, 0, reinterpret_cast<sockaddr*>(&discard), sizeof discard);
    close(sender);
    CapturedFrame frame;
    while (handle->next(frame) != CaptureHandle::gotFrame) {
    }
    return sentAt <= frame.receivedAt && frame.receivedAt <= realNanoseconds();
}

}  // namespace

/// reader_rounds N: starts and stops capturing on all interfaces N times. Prints a line each: the
/// number of open descriptors before, after the first start, after the last, and at the end;
/// whether frames are stamped on receipt; then the interfaces.
int main(int, char** argv) {
    std::cout << openDescriptors() << '\n';
    {
        const SteadyPerformanceCounter counter;
        PcapPort port;
        NoSink sink;
        station::PassThroughClocks clocks(counter, counter.getNanoseconds());
        station::DirectOutputs outputs(sink);
        CmpPacketReader reader(&clocks, &outputs, port, counter);
        reader.openAndStartRead();
        std::cout << openDescriptors() << '\n';
        for (int i = 1; i < std::atoi(argv[1]); ++i) {
            reader.Stop();
            reader.openAndStartRead();
        }
        std::cout << openDescriptors() << '\n';
        reader.Stop();
    }
    std::cout << openDescriptors() << '\n';
    std::cout << isStampedOnReceipt() << '\n';
    std::vector<CaptureInterface> interfaces;
    std::string error;
    PcapPort().findAllDevices(interfaces, error);
    for (const CaptureInterface& entry : interfaces) {
        std::cout << entry.name << '\n';
    }
    return EXIT_SUCCESS;
}
