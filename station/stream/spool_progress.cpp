#include "station/stream/spool_progress.h"

#include <algorithm>
#include <set>

namespace station {

/// A power cut or another program may have spoiled it, or the parts.
bool SpoolProgress::load(const std::vector<SpoolPlace>& note, const Parts& parts,
                         const EndsBatch& endsBatch) {
    bool isOfThese = !note.empty();
    std::set<std::uint64_t> named;
    for (const SpoolPlace& place : note) {
        const std::uint64_t measurement = place.part.measurement;
        named.insert(measurement);
        current = 0;
        const auto first = parts.lower_bound({measurement, 0});
        if (first == parts.end() || first->first.measurement != measurement) {
            continue;  // all of it was acknowledged
        }
        const bool isThere = parts.contains(place.part) && endsBatch(place);
        current = measurement;
        // Its part may be gone by right, but then those in front of it are too.
        isOfThese = isOfThese && (isThere || place.offset == 0 || place.part < first->first);
        if (isThere || place.part < first->first) {
            acknowledge({place.part, place.offset}, 0);
        }
    }
    if (current == 0 && !parts.empty()) {
        current = parts.rbegin()->first.measurement;  // most likely: it went before others
    }
    // It names each that had parts; later ones may have come since.
    return isOfThese && std::ranges::all_of(parts, [&](const auto& part) {
               const std::uint64_t measurement = part.first.measurement;
               return named.contains(measurement) || measurement > *named.rbegin();
           });
}

std::vector<SpoolPlace> SpoolProgress::list(const Parts& parts) const {
    std::map<std::uint64_t, Parts::const_iterator> lasts;  // by measurement
    for (auto part = parts.begin(); part != parts.end(); ++part) {
        lasts[part->first.measurement] = part;
    }
    std::vector<SpoolPlace> note;
    note.reserve(lasts.size() + 1);
    const auto add = [&](std::uint64_t measurement) {
        SpoolPlace place = getPlace(measurement);
        const auto last = lasts.find(measurement);
        place.isGone = !parts.contains(place.part);
        place.isDone = last == lasts.end();
        if (!place.isDone) {
            place.lastPart = last->second->first.part;
            place.lastBytes = last->second->second;
        }
        note.push_back(place);
    };
    for (const auto& [measurement, last] : lasts) {
        if (measurement != current) {
            add(measurement);
        }
    }
    if (current != 0) {
        add(current);
    }
    return note;
}

void SpoolProgress::acknowledge(const SpoolPlace& end, std::uint64_t messages) {
    Acknowledged& latest = measurements[end.part.measurement];
    latest.messages = messages + (latest.place.part == end.part ? latest.messages : 0);
    latest.place = end;
}

SpoolPlace SpoolProgress::getPlace(std::uint64_t measurement) const {
    const auto found = measurements.find(measurement);
    return found != measurements.end() ? found->second.place : SpoolPlace{{measurement, 0}, 0};
}

std::uint64_t SpoolProgress::getStart(const SpoolKey& part) const {
    const SpoolPlace place = getPlace(part.measurement);
    return place.part == part ? place.offset : 0;
}

std::uint64_t SpoolProgress::getMessages(const SpoolKey& part) const {
    const auto found = measurements.find(part.measurement);
    return found != measurements.end() && found->second.place.part == part ? found->second.messages
                                                                           : 0;
}

}  // namespace station
