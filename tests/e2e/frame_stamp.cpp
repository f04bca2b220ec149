#include <netinet/in.h>
#include <sys/socket.h>

#include "capture/pcap_port.h"
#include "core/performance_counter.h"

/// Ends with 0 if a frame on the loopback is stamped between its sending and its reading.
int main() {
    const SteadyPerformanceCounter clock;
    std::string error;
    const auto handle = PcapPort().openLive("lo", 65536, false, 1, error);
    const sockaddr_in discard{AF_INET, htons(9), {htonl(INADDR_LOOPBACK)}, {}};
    const int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const std::int64_t sentAt = clock.getRealNanoseconds();
    sendto(sender, "", 1, 0, reinterpret_cast<const sockaddr*>(&discard), sizeof discard);
    CapturedFrame frame;
    while (handle->next(frame) != CaptureHandle::gotFrame) {
    }
    const bool isStamped =
        sentAt <= frame.receivedAt && frame.receivedAt <= clock.getRealNanoseconds();
    return isStamped ? 0 : 1;
}
