#include "station/view/identifier_table.h"

#include <algorithm>

namespace station {
namespace {

std::uint64_t changesBetween(const BusMessage& before, const BusMessage& now) {
    std::uint64_t changed = 0;
    for (std::size_t i = 0; i < now.length; ++i) {
        const bool isSame = i < before.length && before.data[i] == now.data[i];
        changed |= std::uint64_t{isSame ? 0U : 1U} << i;
    }
    return changed;
}

}  // namespace

void IdentifierTable::add(const BusMessage& message) {
    const auto [place, isNew] = places.try_emplace(message.key(), rows.size());
    if (isNew) {
        if (rows.size() == most) {
            places.erase(place);
            ++leftOut;
            return;
        }
        rows.emplace_back().last = message;
        rows.back().traffic.note(message.utc);
        changing.push_back(0);
        return;
    }
    IdentifierRow& row = rows[place->second];
    const std::int64_t cycle = message.utc - row.traffic.getLast();
    const bool isFirst = !row.hasCycle();
    row.cycle = cycle;
    row.leastCycle = isFirst ? cycle : std::min(row.leastCycle, cycle);
    row.mostCycle = isFirst ? cycle : std::max(row.mostCycle, cycle);
    const std::uint64_t changed = changesBetween(row.last, message);
    changing[place->second] |= changed;
    row.changed |= changed;
    row.last = message;
    row.traffic.note(message.utc);
}

void IdentifierTable::updateRates(double seconds) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
        rows[i].traffic.updateRate(seconds);
        rows[i].changed = changing[i];
        changing[i] = 0;
    }
}

void IdentifierTable::clear() {
    *this = {};
}

}  // namespace station
