#pragma once

#include "bridge/output/axis_properties.h"
#include "host/counted_ref.h"
#include "host/host_channel.h"

namespace Kestrova::Utils::Kcom {

/// Describes an axis to the host. The host knows its size already: it is that of the array's
/// dimension.
void writeAxis(const AxisProperties& axis, const CountedRef<HostAxisInfo>& info);

}  // namespace Kestrova::Utils::Kcom
