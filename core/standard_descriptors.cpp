#include "core/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

void holdStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0) {  // the lowest that is free is what it gets
            [[maybe_unused]] const int unused =
                open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}
