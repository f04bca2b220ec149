#pragma once

#include <prometheus/metric_family.h>

#include <vector>

#include "station/session/summary.h"

namespace station {

/// All that table and JSON count, by the naming rules of Prometheus: "cmp_" in front, the unit
/// behind, "_total" at the end of what only grows, and labels for what can be summed up.
std::vector<prometheus::MetricFamily> toMetricFamilies(const Summary& summary);

}  // namespace station
