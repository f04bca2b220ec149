#pragma once

#include <cstdint>
#include <string>

#include "core/registry_store.h"
#include "host/plugin.h"

/// Who the plug-in is to a host: fixed at build time.
namespace PluginIdentity {

/// Of the class `Plugin` in the library `CmpLib`.
inline constexpr InterfaceId classId = cmpPluginClassId;
inline constexpr InterfaceId typeLibraryId{
    0x1F94D3A6, 0x27CE, 0x4B81, {0xB5, 0x60, 0x7E, 0xD2, 0x03, 0x9F, 0x4A, 0xC8}};

inline constexpr const wchar_t* name = L"CMP";
/// Of the registry key below which all plug-ins stand, and of this one's.
inline constexpr const char* pluginsKey = "SOFTWARE\\Kestrova\\Plugins";
inline constexpr const char* keyName = "Cmp";

/// `classId` in braces, as a host keeps it.
std::wstring classIdText();
/// The values of the plug-in's key.
RegistryStore::Values values();

}  // namespace PluginIdentity
