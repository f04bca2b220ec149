#include "station/stream/spool_progress.h"

#include <algorithm>

namespace station {

/// A power cut or another program may have spoiled it, or the parts.
bool SpoolProgress::load(const std::vector<SpoolPlace>& note, const std::set<SpoolKey>& parts,
                         const EndsBatch& endsBatch) {
    bool isOfThese = !note.empty();
    std::set<std::uint64_t> named;
    for (const SpoolPlace& place : note) {
        const std::uint64_t measurement = place.part.measurement;
        named.insert(measurement);
        current = 0;
        const auto first = parts.lower_bound({measurement, 0});
        if (first == parts.end() || first->measurement != measurement) {
            continue;  // all of it was acknowledged
        }
        const bool isThere = parts.contains(place.part) && endsBatch(place);
        current = measurement;
        // Its part may be gone by right, but then those in front of it are too.
        isOfThese = isOfThese && (isThere || place.offset == 0 || place.part < *first);
        if (isThere || place.part < *first) {
            acknowledge({place.part, place.offset}, 0);
        }
    }
    if (current == 0 && !parts.empty()) {
        current = parts.rbegin()->measurement;  // most likely: it went before others
    }
    // It names each that had parts; later ones may have come since.
    return isOfThese && std::ranges::all_of(parts, [&](const SpoolKey& part) {
               return named.contains(part.measurement) || part.measurement > *named.rbegin();
           });
}

std::vector<SpoolPlace> SpoolProgress::list(const std::set<SpoolKey>& parts) const {
    std::set<std::uint64_t> named;
    for (const SpoolKey& part : parts) {
        named.insert(part.measurement);
    }
    std::vector<SpoolPlace> note;
    note.reserve(named.size() + 1);
    const auto add = [&](std::uint64_t measurement) {
        SpoolPlace place = getPlace(measurement);
        place.isGone = !parts.contains(place.part);
        place.isDone = !named.contains(measurement);
        note.push_back(place);
    };
    for (const std::uint64_t measurement : named) {
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
