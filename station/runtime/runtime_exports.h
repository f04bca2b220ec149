#pragma once

#include <cstddef>

#include "host/runtime.h"

// What the library `kvrtcoretypes-64-1` exports: the texts, the error objects and the list of live
// objects that a window toolkit and its plug-ins share in one process. Callable from any thread;
// each thread has a current error of its own. Nothing here throws: where memory is out, the code is
// that of `NoMemoryException`.

extern "C" {

/// The library as the object that windows and the host hand out. It lives as long as the library;
/// its references are not counted.
RuntimeLibrary* kvRtGetLibrary();

// The operations of `RuntimeLibrary`.
HostResult createString(const char* text, RuntimeString** string);
HostResult createErrorInfo(RuntimeErrorInfo** info);
HostResult kvRtGetErrorInfo(RuntimeErrorInfo** info);
HostResult kvRtClearErrorInfo();
HostResult kvRtSetErrorInfo(RuntimeErrorInfo* info);
void kvRtTrackObject(const void* object);
void kvRtUntrackObject(const void* object);
char* kvRtDuplicateCharPtr(const char* text);

/// How many objects are entered in the list of live objects.
std::size_t kvRtTrackedCount();
}
