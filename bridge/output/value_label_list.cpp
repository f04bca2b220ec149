#include "bridge/output/value_label_list.h"

#include <stdexcept>

#include "bridge/output/host_reads.h"

namespace Kestrova::Utils::Kcom::OutputChannel {
namespace {

void write(const CountedRef<HostValueItem>& item, const ValueLabel& label) {
    callHost(item, &HostValueItem::setValue, label.value);
    callHost(item, &HostValueItem::setText, toHostText(label.text).c_str());
    callHost(item, &HostValueItem::setColor, label.color);
}

}  // namespace

void ValueLabelList::add(const ValueLabel& label) const {
    write(hostObject(getList(), &HostValueList::addItem), label);
}

void ValueLabelList::set(const ValueLabel& label) const {
    if (const auto position = positionOf(label.value)) {
        write(itemAt(*position), label);
    } else {
        add(label);
    }
}

FoundValueLabel ValueLabelList::find(std::int32_t value) const {
    const auto position = positionOf(value);
    if (!position) {
        return {};
    }
    const CountedRef<HostValueItem> item = itemAt(*position);
    return {true, hostTextOf(item, &HostValueItem::getText),
            hostValue(item, &HostValueItem::getColor)};
}

void ValueLabelList::remove(std::int32_t value) const {
    if (const auto position = positionOf(value)) {
        callHost(getList(), &HostValueList::removeItem, *position);
    }
}

void ValueLabelList::removeAt(std::uint64_t position) const {
    const std::int32_t place = checked(position);
    callHost(getList(), &HostValueList::removeItem, place);
}

void ValueLabelList::replaceAt(std::uint64_t position, const ValueLabel& label) const {
    write(itemAt(checked(position)), label);
}

void ValueLabelList::setAll(const std::vector<ValueLabel>& labels) const {
    clear();
    for (const ValueLabel& label : labels) {
        add(label);
    }
}

std::vector<ValueLabel> ValueLabelList::getAll() const {
    std::vector<ValueLabel> labels;
    for (std::int32_t position = 0; position < getCount(); ++position) {
        const CountedRef<HostValueItem> item = itemAt(position);
        labels.push_back({hostValue(item, &HostValueItem::getValue),
                          hostTextOf(item, &HostValueItem::getText),
                          hostValue(item, &HostValueItem::getColor)});
    }
    return labels;
}

void ValueLabelList::clear() const {
    for (std::int32_t position = getCount(); position > 0; --position) {
        callHost(getList(), &HostValueList::removeItem, position - 1);
    }
}

std::int32_t ValueLabelList::getCount() const {
    return hostValue(getList(), &HostValueList::getCount);
}

CountedRef<HostValueList> ValueLabelList::getList() const {
    return hostObject(channel, &HostChannel::getValueList);
}

CountedRef<HostValueItem> ValueLabelList::itemAt(std::int32_t position) const {
    return hostObject(getList(), &HostValueList::getItem, position);
}

std::optional<std::int32_t> ValueLabelList::positionOf(std::int32_t value) const {
    for (std::int32_t position = 0; position < getCount(); ++position) {
        if (hostValue(itemAt(position), &HostValueItem::getValue) == value) {
            return position;
        }
    }
    return std::nullopt;
}

std::int32_t ValueLabelList::checked(std::uint64_t position) const {
    const std::int32_t labels = getCount();
    if (labels < 0 || position >= static_cast<std::uint64_t>(labels)) {
        throw std::out_of_range("Index out of bounds");
    }
    return static_cast<std::int32_t>(position);
}

}  // namespace Kestrova::Utils::Kcom::OutputChannel
