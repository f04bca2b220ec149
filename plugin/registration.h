#pragma once

#include <filesystem>

#include "core/registry_store.h"

/// What a host finds the plug-in by: a key with its identity, and one that says which module has
/// its class. Not being able to write them is no failure: a host then doesn't find the plug-in.
namespace Registration {

/// Registering twice leaves the same entries.
void add(const RegistryStore& store, const std::filesystem::path& module);
/// Removes the plug-in's key. Of the class, which has a key below its own, nothing goes: the store
/// removes no key with others below it.
void remove(const RegistryStore& store);

}  // namespace Registration
