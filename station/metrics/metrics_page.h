#pragma once

#include <memory>
#include <string>

#include "station/session/summary.h"

namespace station {

/// The counts of a measurement as a page for Prometheus, which other threads serve.
///
/// Called on the host's thread, which waits for no reader of the page. The destructor waits until
/// the threads have ended: up to two seconds, where a reader sends or takes nothing.
class MetricsPage {
  public:
    virtual ~MetricsPage() = default;
    /// What the page has from now on.
    virtual void show(std::shared_ptr<const Summary> summary) = 0;
};

/// What the module that serves the page exports, by the name below. Opens the page at that address
/// and port; the caller owns it. Null, with the reason in `failure`, if that can't be, or if the
/// caller is of another version: the two share what a summary is.
using OpenMetricsPage = MetricsPage* (*)(const char* version, const std::string& address,
                                         std::string& failure);
inline constexpr const char* openMetricsPageName = "openMetricsPage";

}  // namespace station
