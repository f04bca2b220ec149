#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <map>

#include "capture/pcap_port.h"
#include "core/performance_counter.h"

namespace {

auto openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

/// Whether a datagram on the loopback is stamped between its sending and its reading.
bool isStampedOnReceipt(CaptureHandle& loopback) {
    const SteadyPerformanceCounter clock;
    const sockaddr_in discard{AF_INET, htons(9), {htonl(INADDR_LOOPBACK)}, {}};
    const int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const std::int64_t sentAt = clock.getRealNanoseconds();
    sendto(sender, "", 1, 0, reinterpret_cast<const sockaddr*>(&discard), sizeof discard);
    close(sender);
    CapturedFrame frame;
    while (loopback.next(frame) != CaptureHandle::gotFrame) {
    }
    return sentAt <= frame.receivedAt && frame.receivedAt <= clock.getRealNanoseconds();
}

}  // namespace

/// Prints how many descriptors all interfaces take, whether frames are stamped on receipt, and how
/// many descriptors are left when the interfaces are closed.
int main() {
    const auto before = openDescriptors();
    {
        PcapPort port;
        std::string error;
        std::vector<CaptureInterface> interfaces;
        port.findAllDevices(interfaces, error);
        std::map<std::string, std::unique_ptr<CaptureHandle>> handles;
        for (const CaptureInterface& entry : interfaces) {
            handles[entry.name] = port.openLive(entry.name, 65536, false, 1, error);
        }
        std::cout << openDescriptors() - before << '\n';
        std::cout << isStampedOnReceipt(*handles.at("lo")) << '\n';
    }
    std::cout << openDescriptors() - before << '\n';
}
