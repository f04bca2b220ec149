#pragma once

#include <memory>
#include <string>

#include "station/metrics/metrics_page.h"

namespace station {

/// Opens the page at "PORT", which is that port of the loopback address, or at "ADDRESS:PORT".
///
/// The module that serves it is loaded from the program's folder, or from where it is installed for
/// all users, by the rules for a plug-in: without a page none of the libraries that it takes is
/// loaded. It stays loaded. Throws `UserError`, or `PluginError` if the module can't be loaded.
std::unique_ptr<MetricsPage> openMetricsPage(const std::string& where);

}  // namespace station
