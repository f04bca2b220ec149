#pragma once

#include <string>
#include <vector>

#include "host/module_list.h"
#include "station/document/setup_document.h"

namespace station {

/// Numbers by which the plug-in's part of a setup names modules, clocks and channels and which
/// several have. Such a setup can be opened, but something in it won't work, and people who edit
/// files by hand must know where.
///
/// A sentence each, beginning with "line N: ".
std::vector<std::string> findSetupFaults(const SetupElement& section);

/// The same for values with which the section can't be loaded.
std::vector<std::string> findUnreadable(const SetupElement& section);

/// The same for what only the plug-in knows: a type that it doesn't have, a ConfigId that the type
/// can't have, and modules of two types with one CM ID. `settings` is what it has loaded, `modules`
/// are those that it has since.
std::vector<std::string> findModuleFaults(const SetupElement& settings,
                                          const std::vector<ListedModule>& modules);

/// The children that aren't among those known. They stay where they are, and count for nothing: a
/// sentence each, as above.
std::vector<std::string> findIgnored(const SetupElement& parent, const SetupElement::List& known);

}  // namespace station
