#include "station/cli/permission.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "station/exit_codes.h"

namespace station {

/// Asked of the system itself: libpcap's error would come once for each interface and tell nothing
/// of the remedy.
void checkCapturePermission() {
    const int descriptor = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (descriptor >= 0) {
        close(descriptor);
        return;
    }
    if (errno == EPERM || errno == EACCES) {
        throw CommandError(ExitCode::NotAllowed,
                           "not allowed to capture. Do one of these:\n"
                           "  run it with sudo;\n"
                           "  give the program the right: sudo setcap cap_net_raw+ep "
                           "\"$(command -v cmp-station)\";\n"
                           "  join the group that may run it with that right, where the "
                           "administrator has set one up");
    }
}

}  // namespace station
