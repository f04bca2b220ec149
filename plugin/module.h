#pragma once

#include "host/host_object.h"
#include "host/plugin.h"

// What the component exports. A host loads the module that the registry names for the plug-in's
// class and asks it for a factory; an installer calls the registration.

extern "C" {

/// Registers the plug-in per machine, or per user once `DllInstall` was asked to. A host result.
HostResult DllRegisterServer();
HostResult DllUnregisterServer();
/// Registers (`install` true) or removes. The option "user", in any case of letters, goes for the
/// rest of the process: the entries are then the user's own. Null is no option.
HostResult DllInstall(HostBool install, const wchar_t* option);
/// The factory of the class, by that interface of it. `HostCode::classNotAvailable` for another
/// class.
HostResult DllGetClassObject(const InterfaceId& classId, const InterfaceId& interfaceId,
                             void** result);
/// 0 when the module may be unloaded, 1 while objects or locks are left.
HostResult DllCanUnloadNow();
}
