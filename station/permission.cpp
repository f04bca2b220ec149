#include "station/permission.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "station/errors.h"

namespace station {

/// Asked of the system itself: libpcap's error would come once for each interface and tell nothing
/// of the remedy.
void checkCapturePermission(const char* program) {
    const int descriptor = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (descriptor >= 0) {
        close(descriptor);
        return;
    }
    if (errno == EPERM || errno == EACCES) {
        throw UserError(
            ExitCode::NotAllowed,
            std::string(
                "not allowed to capture. Do one of these:\n"
                "  run it with sudo;\n"
                "  give the program the right: sudo setcap cap_net_raw+ep \"$(command -v ") +
                program +
                ")\";\n"
                "  join the group that may run it with that right, where the administrator has set "
                "one up");
    }
}

}  // namespace station
