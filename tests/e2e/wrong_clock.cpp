// Preloaded: this process has the system's clock late, by WRONG_CLOCK seconds.
#include <dlfcn.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

static time_t getDelay() {
    return atol(getenv("WRONG_CLOCK"));
}

extern "C" int clock_gettime(clockid_t clock, struct timespec* time) noexcept {
    const long result = syscall(SYS_clock_gettime, clock, time);
    if (clock == CLOCK_REALTIME) {
        time->tv_sec -= getDelay();
    }
    return static_cast<int>(result);
}

extern "C" time_t time(time_t* target) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return target != nullptr ? *target = now.tv_sec : now.tv_sec;
}

// The system waits by the right clock.
extern "C" int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                      const struct timespec* end) {
    using Wait = int (*)(pthread_cond_t*, pthread_mutex_t*, const struct timespec*);
    static const auto wait = reinterpret_cast<Wait>(dlsym(RTLD_NEXT, "pthread_cond_timedwait"));
    const timespec right{end->tv_sec + getDelay(), end->tv_nsec};
    return wait(condition, mutex, &right);
}
