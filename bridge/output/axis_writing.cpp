#include "bridge/output/axis_writing.h"

#include "bridge/output/host_reads.h"

namespace Kestrova::Utils::Kcom {
namespace {

/// The values of an axis, by its class; of a class that isn't known, none.
void writeValues(const AxisProperties& axis, const CountedRef<HostAxisInfo>& info) {
    if (const auto* line = dynamic_cast<const AxisPropertiesFloatLinearFunc*>(&axis)) {
        callHost(info, &HostAxisInfo::setStart, line->getStart());
        callHost(info, &HostAxisInfo::setStep, line->getStep());
    } else if (const auto* texts = dynamic_cast<const AxisPropertiesString*>(&axis)) {
        for (std::uint64_t position = 0; position < texts->getSize(); ++position) {
            callHost(info, &HostAxisInfo::setTextValue, static_cast<std::int32_t>(position),
                     toHostText(texts->getValue(position)).c_str());
        }
    } else if (const auto* numbers = dynamic_cast<const AxisPropertiesFloat*>(&axis)) {
        for (std::uint64_t position = 0; position < numbers->getSize(); ++position) {
            callHost(info, &HostAxisInfo::setNumericValue, static_cast<std::int32_t>(position),
                     numbers->getValue(position));
        }
    }
}

}  // namespace

void writeAxis(const AxisProperties& axis, const CountedRef<HostAxisInfo>& info) {
    const std::int32_t type = axis.getAxisType();
    callHost(info, &HostAxisInfo::setAxisType, type == 1 || type == 2 ? type : 0);
    callHost(info, &HostAxisInfo::setLabelB, toHostText(axis.getLabelB()).c_str());
    callHost(info, &HostAxisInfo::setLabelA, toHostText(axis.getLabelA()).c_str());
    callHost(info, &HostAxisInfo::setStyle, axis.getStyle());
    callHost(hostObject(info, &HostAxisInfo::getDisplay), &HostAxisDisplay::setValue,
             axis.getDisplayValue());
    callHost(hostObject(info, &HostAxisInfo::getDisplay), &HostAxisDisplay::setFlag,
             toHostBool(axis.getDisplayFlag()));
    writeValues(axis, info);
}

}  // namespace Kestrova::Utils::Kcom
