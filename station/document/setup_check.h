#pragma once

#include <string>
#include <vector>

#include "host/module_list.h"
#include "station/document/setup_document.h"

namespace station {

/// What is wrong with the numbers by which the plug-in's part of a setup names modules, clocks and
/// channels: one that several have, and one that is no number or below zero. Such a setup can be
/// opened, but something in it won't work, and people who edit files by hand must know where. And
/// an expected rate that a channel can't have, with which it can't be opened.
///
/// A sentence each, beginning with "line N: ".
std::vector<std::string> findSetupFaults(const SetupElement& section);

/// The same for what only the plug-in knows: a type that it doesn't have, a ConfigId that the type
/// can't have, and modules of two types with one CM ID. `settings` is what it has loaded, `modules`
/// are those that it has since.
std::vector<std::string> findModuleFaults(const SetupElement& settings,
                                          const std::vector<ListedModule>& modules);

/// The children that aren't among those known. They stay where they are, and count for nothing: a
/// sentence each, as above.
std::vector<std::string> findIgnored(const SetupElement& parent, const SetupElement::List& known);

}  // namespace station
