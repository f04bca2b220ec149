#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "capture/pcap_port.h"
#include "core/performance_counter.h"

/// Whether a datagram on the loopback is stamped between its sending and its reading: then 0.
int main() {
    PcapPort port;
    std::string error;
    const auto loopback = port.openLive("lo", 65536, false, 1, error);
    const SteadyPerformanceCounter clock;
    const sockaddr_in discard{AF_INET, htons(9), {htonl(INADDR_LOOPBACK)}, {}};
    const int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const std::int64_t sentAt = clock.getRealNanoseconds();
    sendto(sender, "", 1, 0, reinterpret_cast<const sockaddr*>(&discard), sizeof discard);
    close(sender);
    CapturedFrame frame;
    while (loopback->next(frame) != CaptureHandle::gotFrame) {
    }
    return sentAt <= frame.receivedAt && frame.receivedAt <= clock.getRealNanoseconds() ? 0 : 1;
}
