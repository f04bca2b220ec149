// What the sanitizers are to leave out in libraries that aren't built with them. Nothing but they
// calls these.
#ifdef __clang__
#pragma clang diagnostic ignored "-Wreserved-identifier"
#endif

/// What the D-Bus library keeps when Qt's platform for X looks for a bus.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libdbus-1.so";
}

/// The thread sanitizer can't see how the threads inside Qt's libraries agree with each other. What
/// Qt itself does there is left out; code of ours that Qt calls, and every other thread, is watched
/// as always. Nor does it see how oneTBB gives a task to a thread and waits for it, so it can't
/// watch what runs in a task either.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libQt6Core.so\ncalled_from_lib:libQt6Gui.so\n"
           "called_from_lib:libQt6DBus.so\ncalled_from_lib:libQt6XcbQpa.so\n"
           "called_from_lib:libglib-2.0.so\n"
           "race:/oneapi/tbb/\n";
}
