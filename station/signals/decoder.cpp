#include "station/signals/decoder.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace station {

namespace {

/// In order, and those that overlap as one.
std::vector<Multiplexing::Range> joined(std::vector<Multiplexing::Range> ranges) {
    std::ranges::sort(ranges, {}, &Multiplexing::Range::least);
    std::vector<Multiplexing::Range> result;
    for (const Multiplexing::Range& range : ranges) {
        if (range.least > range.most) {
            continue;
        }
        if (!result.empty() && range.least <= result.back().most) {
            result.back().most = std::max(result.back().most, range.most);
        } else {
            result.push_back(range);
        }
    }
    return result;
}

}  // namespace

static_assert(std::endian::native == std::endian::little, "bitsOf reads words as they lie");

Decoder::Decoder(std::shared_ptr<const Database> definitions) : database(std::move(definitions)) {
    messages.reserve(database->messages.size());
    for (const MessageDefinition& definition : database->messages) {
        const Message& message = messages.emplace_back(definition, messages.size());
        if (!definition.isExtended && definition.id < standard.size()) {
            standard[definition.id] = &message;
        } else {
            extended.emplace(definition.id, &message);
        }
    }
}

Decoder::~Decoder() = default;

std::size_t Decoder::countMessages() const {
    return messages.size();
}

const Decoder::Message* Decoder::find(std::uint32_t id, bool isExtended) const {
    if (!isExtended) {
        return id < standard.size() ? standard[id] : nullptr;
    }
    const auto found = extended.find(id);
    return found == extended.end() ? nullptr : found->second;
}

Decoder::Message::Message(const MessageDefinition& definition, std::size_t place)
    : source(&definition), index(place) {
    for (const SignalDefinition& signal : definition.signals) {
        const bool isBigEndian = signal.byteOrder == ByteOrder::BigEndian;
        const std::size_t end = signal.getEndByte();
        Entry entry{};
        entry.definition = &signal;
        entry.index = static_cast<std::uint32_t>(entries.size());
        entry.isBigEndian = isBigEndian;
        entry.firstByte = signal.startBit / 8;
        entry.shift = isBigEndian ? 7 - signal.startBit % 8 : signal.startBit % 8;
        entry.endByte = static_cast<std::uint32_t>(std::min(end, mostData + 1));
        entry.size = signal.size;
        entry.switchPlace = noSwitch;
        entry.kind = signal.kind;
        entry.hasTexts = !signal.texts.empty();
        entry.hasRanges = !signal.ranges.empty();
        entry.factor = signal.factor;
        entry.offset = signal.offset;
        entry.chosenBy = joined(signal.multiplexing.ranges);
        entries.push_back(std::move(entry));
    }
    placeSwitches();
}

/// Each round takes the switches whose own switch was taken before. What then depends on one that
/// wasn't taken, as it depends on itself, is never there.
void Decoder::Message::placeSwitches() {
    std::vector<std::uint32_t> places(entries.size(), noSwitch);
    const auto find = [&](Entry& entry) {
        const std::size_t on = entry.definition->multiplexing.switchIndex;
        if (on == Multiplexing::none) {
            return true;
        }
        entry.switchPlace = on < places.size() ? places[on] : noSwitch;
        return entry.switchPlace != noSwitch;
    };
    for (bool hasMore = true; hasMore;) {
        hasMore = false;
        for (Entry& entry : entries) {
            if (entry.definition->multiplexing.isSwitch && places[entry.index] == noSwitch &&
                switches.size() < mostSwitches && find(entry)) {
                places[entry.index] = static_cast<std::uint32_t>(switches.size());
                switches.push_back(entry);
                hasMore = true;
            }
        }
    }
    for (Entry& entry : entries) {
        if (!find(entry)) {
            entry.endByte = mostData + 1;
        }
    }
}

void Decoder::Message::addMeaning(const Entry& entry, DecodedSignal& signal) {
    const SignalDefinition& definition = *entry.definition;
    double factor = entry.factor;
    double offset = entry.offset;
    for (const ScaledRange& range : definition.ranges) {
        if (signal.raw >= range.least && signal.raw <= range.most) {
            factor = range.factor;
            offset = range.offset;
            signal.unit = &range.unit;
            break;
        }
    }
    std::int64_t key = signal.raw;
    bool hasKey = true;
    if (entry.kind == ValueKind::Float32 || entry.kind == ValueKind::Float64) {
        constexpr double exactIntegers = 9007199254740992.0;
        hasKey =
            std::abs(signal.value) <= exactIntegers && std::nearbyint(signal.value) == signal.value;
        key = hasKey ? static_cast<std::int64_t>(signal.value) : 0;
    }
    const auto found = std::ranges::lower_bound(definition.texts, key, {}, &ValueText::raw);
    if (hasKey && found != definition.texts.end() && found->raw == key) {
        signal.text = &found->text;
    }
    signal.value = signal.value * factor + offset;
}

}  // namespace station
