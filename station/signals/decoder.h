#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include "station/signals/database.h"

namespace station {

/// A signal as it was in a message. The pointers are good as long as the decoder's database is.
struct DecodedSignal {
    const SignalDefinition* definition;
    std::size_t index;        ///< of the definition among the message's signals
    std::int64_t raw;         ///< exact; the bits of an unsigned one of 64 bits and of a float
    double value;             ///< raw * factor + offset
    const std::string* unit;  ///< never null
    const std::string* text;  ///< what the raw value means; null if that isn't said
};

/// Takes the signals out of messages.
///
/// A table is made of the database once; finding a message and decoding it allocate nothing and
/// take no lock, so that any threads may use one decoder. What a message carries never leads
/// outside of its bytes.
class Decoder {
  public:
    class Message;

    explicit Decoder(std::shared_ptr<const Database> definitions);
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    std::size_t countMessages() const;
    /// Null: the database doesn't define it.
    const Message* find(std::uint32_t id, bool isExtended) const;

  private:
    static constexpr std::size_t standardCount = 0x800;

    const std::shared_ptr<const Database> database;
    std::vector<Message> messages;
    std::array<const Message*, standardCount> standard = {};
    std::unordered_map<std::uint32_t, const Message*> extended;
};

/// A message's table.
class Decoder::Message {
  public:
    /// `definition` stays where it is as long as this is used.
    explicit Message(const MessageDefinition& definition, std::size_t place);

    const MessageDefinition& getDefinition() const { return *source; }
    std::size_t getIndex() const { return index; }  ///< in the database

    /// Calls `visit(const DecodedSignal&)` for each signal that is in a message with these data, in
    /// the order of their definition: those that its bytes have, and whose switch has a value for
    /// them. Of more than 64 bytes the first are looked at.
    template <typename Visitor>
    void decode(std::span<const std::uint8_t> data, Visitor&& visit) const {
        Bytes bytes(data);
        Switches values;
        readSwitches(bytes, values);
        for (const Entry& entry : entries) {
            if (entry.endByte <= bytes.size && isChosen(entry, values)) {
                visit(toSignal(entry, extract(entry, bytes)));
            }
        }
    }
    /// The same into an array; returns how many there were. One that has room for as many signals
    /// as the definition is enough, in a smaller one the last are missing.
    std::size_t decodeInto(std::span<DecodedSignal> room,
                           std::span<const std::uint8_t> data) const {
        std::size_t count = 0;
        decode(data, [&](const DecodedSignal& signal) {
            if (count < room.size()) {
                room[count++] = signal;
            }
        });
        return count;
    }

    static constexpr std::size_t mostSwitches = 256;  ///< a message may have
    static constexpr std::size_t mostData = 64;

  private:
    static constexpr std::uint32_t noSwitch = ~0U;

    struct Entry {
        const SignalDefinition* definition;
        std::uint32_t index;
        std::uint32_t firstByte;
        std::uint32_t shift;    ///< LittleEndian: bits below it, BigEndian: above it, in its byte
        std::uint32_t endByte;  ///< beyond `mostData`: never there
        std::uint32_t size;
        std::uint32_t switchPlace;  ///< in `switches`
        bool isBigEndian;
        ValueKind kind;
        bool hasTexts;
        bool hasRanges;
        double factor;
        double offset;
        std::vector<Multiplexing::Range> chosenBy;  ///< in order, with gaps between them
    };
    /// A message's bytes with room behind them, so that eight and one more can be read from each.
    struct Bytes {
        explicit Bytes(std::span<const std::uint8_t> data)
            : size(data.size() < mostData ? data.size() : mostData) {
            std::copy_n(data.begin(), size, all.begin());  // there may be none at all
        }
        std::array<std::uint8_t, mostData + 16> all = {};
        std::size_t size;
    };
    /// Only as many of them are ever looked at as the message has switches.
    struct Switches {
        Switches() {}  // not zeroed: that would take longer than most messages do
        std::array<std::uint64_t, mostSwitches> raw;
        std::array<bool, mostSwitches> isThere;
    };

    void readSwitches(const Bytes& bytes, Switches& values) const {
        for (std::size_t i = 0; i < switches.size(); ++i) {
            const Entry& entry = switches[i];
            values.isThere[i] = entry.endByte <= bytes.size && isChosen(entry, values);
            values.raw[i] = values.isThere[i] ? bitsOf(entry, bytes) : 0;
        }
    }
    static bool isChosen(const Entry& entry, const Switches& values) {
        if (entry.switchPlace == noSwitch) {
            return true;
        }
        if (!values.isThere[entry.switchPlace]) {
            return false;
        }
        const std::uint64_t value = values.raw[entry.switchPlace];
        const auto behind =
            std::ranges::upper_bound(entry.chosenBy, value, {}, &Multiplexing::Range::least);
        return behind != entry.chosenBy.begin() && value <= std::prev(behind)->most;
    }
    static std::uint64_t bitsOf(const Entry& entry, const Bytes& bytes) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes.all.data() + entry.firstByte, sizeof word);
        const std::uint64_t next = bytes.all[entry.firstByte + sizeof word];
        const std::uint32_t unused = 64 - entry.size;
        if (entry.isBigEndian) {
            word = __builtin_bswap64(word) << entry.shift | next >> (8 - entry.shift);
            return word >> unused;
        }
        word = word >> entry.shift | (next << 1U) << (63 - entry.shift);
        return word << unused >> unused;
    }
    static std::int64_t extract(const Entry& entry, const Bytes& bytes) {
        const std::uint64_t bits = bitsOf(entry, bytes);
        if (entry.kind != ValueKind::Signed) {
            return static_cast<std::int64_t>(bits);
        }
        const std::uint32_t unused = 64 - entry.size;
        return static_cast<std::int64_t>(bits << unused) >> unused;
    }
    static DecodedSignal toSignal(const Entry& entry, std::int64_t raw) {
        DecodedSignal signal{entry.definition,        entry.index, raw, toNumber(entry.kind, raw),
                             &entry.definition->unit, nullptr};
        if (entry.hasTexts || entry.hasRanges) {
            addMeaning(entry, signal);
        } else {
            signal.value = signal.value * entry.factor + entry.offset;
        }
        return signal;
    }
    static double toNumber(ValueKind kind, std::int64_t raw) {
        switch (kind) {
            case ValueKind::Signed:
                return static_cast<double>(raw);
            case ValueKind::Float32:
                return std::bit_cast<float>(static_cast<std::uint32_t>(raw));
            case ValueKind::Float64:
                return std::bit_cast<double>(raw);
            case ValueKind::Unsigned:
                break;
        }
        return static_cast<double>(static_cast<std::uint64_t>(raw));
    }
    void placeSwitches();
    static void addMeaning(const Entry& entry, DecodedSignal& signal);

    const MessageDefinition* source;
    std::size_t index;
    std::vector<Entry> entries;   ///< in the order of the definition
    std::vector<Entry> switches;  ///< each behind the one that it depends on
};

}  // namespace station
