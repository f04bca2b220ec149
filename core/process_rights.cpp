#include "core/process_rights.h"

#include <linux/capability.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace {

bool hasCapabilities() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
    if (syscall(SYS_capget, &header, sets.data()) != 0) {
        return true;  // which is the safe answer
    }
    return std::any_of(sets.begin(), sets.end(),
                       [](const auto& set) { return (set.effective | set.permitted) != 0; });
}

}  // namespace

bool hasMoreRightsThanCaller() {
    return getauxval(AT_SECURE) != 0 || (getuid() != 0 && hasCapabilities());
}

uid_t programOwner() {
    struct stat facts {};
    return stat("/proc/self/exe", &facts) == 0 ? facts.st_uid : 0;
}
