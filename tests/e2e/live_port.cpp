#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <map>

#include "capture/capture_messages.h"
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

/// Whether the loopback is opened by itself and read if it is the only one that isn't open yet.
bool isLateOneRead(PcapPort& port, std::map<std::string, std::unique_ptr<CaptureHandle>>& handles) {
    handles.erase("lo");
    CaptureMessages messages;
    LateCapture wanted{{}, {}, 65536, false, 1, &messages};
    for (const auto& [name, handle] : handles) {
        wanted.opened.push_back(handle.get());
    }
    const auto late = port.openLate(wanted);
    std::vector<std::string> told;
    while (told.empty()) {
        told = messages.take();
    }
    return told == std::vector<std::string>{"interface lo is captured from now on"} &&
           isStampedOnReceipt(*late);
}

}  // namespace

/// Prints how many descriptors all interfaces take, whether frames are stamped on receipt, whether
/// an interface is opened later, and how many descriptors are left when the interfaces are closed.
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
        std::cout << (isLateOneRead(port, handles) ? 1 : 0) << '\n';
    }
    std::cout << openDescriptors() - before << '\n';
}
