#include "station/permission.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "core/process_rights.h"
#include "core/shell_word.h"
#include "core/trusted_path.h"
#include "station/errors.h"

namespace station {
namespace {

/// What a desktop needs: where the display is and how to be allowed there, where settings are,
/// and languages. No variable by which a library finds code or a program to start.
constexpr std::array<std::string_view, 9> harmlessVariables = {
    "DISPLAY", "XAUTHORITY", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME", "HOME", "USER",
    "LOGNAME", "LANG",       "LANGUAGE"};

bool isHarmless(std::string_view variable) {
    return variable.substr(0, 3) == "LC_" ||
           std::find(harmlessVariables.begin(), harmlessVariables.end(), variable) !=
               harmlessVariables.end();
}

void reduceEnvironment() {
    std::map<std::string, std::string> kept;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        const std::size_t end = text.find('=');
        if (end != std::string_view::npos && isHarmless(text.substr(0, end))) {
            kept.emplace(text.substr(0, end), text.substr(end + 1));
        }
    }
    clearenv();
    for (const auto& [name, value] : kept) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    // X11 without OpenGL: other ways to draw load drivers that the display names.
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    setenv("QT_XCB_GL_INTEGRATION", "none", 1);
}

/// The right to open packet sockets, for the next program that this process becomes. Where the
/// process doesn't have it this does nothing.
void letInheritCaptureRight() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
    if (syscall(SYS_capget, &header, sets.data()) != 0) {
        return;
    }
    sets[CAP_TO_INDEX(CAP_NET_RAW)].inheritable |= CAP_TO_MASK(CAP_NET_RAW);
    if (syscall(SYS_capset, &header, sets.data()) == 0) {
        prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_NET_RAW, 0, 0);
    }
}

}  // namespace

/// Asked of the system itself: libpcap's error would come once for each interface and say nothing
/// of the remedy.
void checkCapturePermission(const char* program) {
    const int descriptor = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (descriptor >= 0) {
        close(descriptor);
        return;
    }
    if (errno != EPERM && errno != EACCES) {
        return;
    }
    std::error_code error;
    const std::string folder =
        std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
    const bool isDesktop = std::string_view(program) != "cmp-station";
    const bool isInstalled = folder.rfind("/usr/", 0) == 0;
    const std::string place = isInstalled ? folder : "/usr/local/lib/cmp";
    throw UserError(
        ExitCode::NotAllowed,
        "not allowed to capture. Do one of these:\n"
        "  run it with sudo;\n"
        "  give cmp-station the right, where root alone can write (the desktop gets it from "
        "\"cmp-station gui\"):\n" +
            (isInstalled ? std::string()
                         : "    cd " + quotedForShell(folder) + " && sudo install -D -t " + place +
                               " cmp-station cmp-station-gui cmp_plugin.so cmp_metrics.so "
                               "libkvrtcoretypes-64-1.so\n") +
            "    sudo setcap cap_net_raw+ep " + place +
            "/cmp-station\n"
            "  join the group that may run it with that right, where the administrator has set one "
            "up" +
            (isDesktop ? ", and start it with \"cmp-station gui\"" : ""));
}

void keepRightsToItself() {
    prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
}

void passOnCaptureRight() {
    if (hasMoreRightsThanCaller()) {
        letInheritCaptureRight();
        reduceEnvironment();
    }
}

void guardDesktop() {
    if (!hasMoreRightsThanCaller()) {
        return;
    }
    std::error_code error;
    const std::string reason =
        reasonForDistrust(std::filesystem::read_symlink("/proc/self/exe", error));
    if (!reason.empty()) {
        throw UserError(ExitCode::NotAllowed,
                        "the desktop doesn't run with the right to capture: " + reason);
    }
    reduceEnvironment();
}

}  // namespace station
