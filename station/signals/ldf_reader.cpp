#include "station/signals/ldf_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "station/signals/definition_text.h"

namespace station {
namespace {

constexpr std::uint64_t mostFrameId = 63;
constexpr std::uint64_t mostFrameBytes = 8;
constexpr std::size_t mostLinSignals = 100'000;
constexpr std::size_t mostEncodings = 100'000;  ///< lines of them

struct Encoding {
    std::vector<ValueText> texts;
    std::vector<ScaledRange> ranges;
};

class LdfReader {
  public:
    explicit LdfReader(const std::string& path) : text(path) {
        database.file = path;
        database.bus = BusType::Lin;
    }

    Database read() {
        if (!text.takeWord("LIN_description_file")) {
            text.failHere(fmt::format("a .ldf begins with LIN_description_file, and not with {}",
                                      text.describeNext()));
        }
        text.expect(';', "LIN_description_file");
        while (!text.isAtEnd()) {
            readSection();
        }
        if (database.messages.empty()) {
            text.fail("the file ends without a frame (Frames)");
        }
        for (MessageDefinition& message : database.messages) {
            for (SignalDefinition& signal : message.signals) {
                encode(signal);
            }
        }
        return std::move(database);
    }

  private:
    void readSection() {
        const std::string section = text.name("a section's name");
        if (text.take('=')) {  // of the file as a whole
            text.skipStatement();
            return;
        }
        text.expect('{', section.substr(0, 30));
        if (section == "Signals" || section == "Diagnostic_signals") {
            readEach([this] { readSignal(); });
        } else if (section == "Frames") {
            readEach([this] { readFrame(true); });
        } else if (section == "Diagnostic_frames") {
            readEach([this] { readFrame(false); });
        } else if (section == "Signal_encoding_types") {
            readEach([this] { readEncoding(); });
        } else if (section == "Signal_representation") {
            readEach([this] { readRepresentation(); });
        } else {
            text.skipBlock();
        }
    }

    template <typename Read>
    void readEach(const Read& read) {
        while (!text.take('}')) {
            read();
        }
    }

    /// NAME: SIZE, INITIAL, PUBLISHER, SUBSCRIBERS;
    void readSignal() {
        SignalDefinition signal;
        signal.name = text.name("a signal's name");
        text.expect(':', "a signal");
        signal.size = static_cast<std::uint32_t>(text.whole("a signal's size", 64));
        if (signal.size == 0) {
            text.fail(fmt::format("signal {} has no bits", signal.name));
        }
        const std::size_t line = text.getLine();
        text.skipStatement();
        if (signals.size() == mostLinSignals) {
            text.fail(fmt::format("there are more than {} signals", mostLinSignals));
        }
        std::string name = signal.name;
        if (!signals.try_emplace(std::move(name), signal).second) {
            text.failAt(line, fmt::format("there is a signal {} already", signal.name));
        }
    }

    /// NAME: ID, PUBLISHER, SIZE { SIGNAL, OFFSET; ... }; diagnostic ones have the identifier only.
    void readFrame(bool hasPublisher) {
        MessageDefinition frame;
        frame.name = text.name("a frame's name");
        text.expect(':', "a frame");
        frame.id = static_cast<std::uint32_t>(text.whole("a frame's identifier", mostFrameId));
        const std::size_t line = text.getLine();
        frame.length = frame.id < 0x20 ? 2 : frame.id < 0x30 ? 4 : mostFrameBytes;
        if (hasPublisher) {
            text.expect(',', "a frame");
            frame.sender = text.name("a frame's publisher");
            if (text.take(',')) {  // else as LIN 1.2 has it by identifier
                frame.length = text.whole("a frame's size", mostFrameBytes);
            }
        }
        text.expect('{', "a frame");
        while (!text.take('}')) {
            readPlace(frame);
        }
        const auto same = std::ranges::find(database.messages, frame.id, &MessageDefinition::id);
        if (same != database.messages.end()) {
            text.notice(
                database, line,
                fmt::format("{} has the identifier of {}, which counts", frame.name, same->name));
            return;
        }
        database.messages.push_back(std::move(frame));
    }

    void readPlace(MessageDefinition& frame) {
        const std::string name = text.name("a signal's name");
        const std::size_t line = text.getLine();
        text.expect(',', "a signal's place");
        const auto offset =
            static_cast<std::uint32_t>(text.whole("a signal's first bit", mostFrameBytes * 8 - 1));
        text.expect(';', "a signal's place");
        const auto found = signals.find(name);
        if (found == signals.end()) {
            text.failAt(line, fmt::format("there is no signal {} (Signals)", name));
        }
        if (std::ranges::find(frame.signals, name, &SignalDefinition::name) !=
            frame.signals.end()) {
            text.failAt(line, fmt::format("{} has {} already", frame.name, name));
        }
        SignalDefinition signal = found->second;
        signal.startBit = offset;
        if (signal.getEndByte() > frame.length) {
            text.notice(database, line,
                        fmt::format("{} lies outside of the {} bytes of {}: it is there in "
                                    "messages of {} bytes or more",
                                    name, frame.length, frame.name, signal.getEndByte()));
        }
        if (frame.signals.size() == mostFrameBytes * 8) {
            text.failAt(line, fmt::format("{} has more signals than bits", frame.name));
        }
        frame.signals.push_back(std::move(signal));
    }

    /// NAME { logical_value, 0, "off"; physical_value, 0, 100, 0.5, -40, "degC"; ... }
    void readEncoding() {
        const std::string name = text.name("an encoding's name");
        Encoding encoding;
        text.expect('{', "an encoding");
        while (!text.take('}')) {
            if (++encodingCount > mostEncodings) {
                text.fail(fmt::format("there are more than {} encodings", mostEncodings));
            }
            if (text.takeWord("logical_value")) {
                text.expect(',', "a logical value");
                ValueText meaning{text.raw("a logical value"), {}};
                if (text.take(',')) {
                    meaning.text = text.quoted("a logical value's text", false);
                    encoding.texts.push_back(std::move(meaning));
                }
                text.expect(';', "a logical value");
            } else if (text.takeWord("physical_value")) {
                encoding.ranges.push_back(readPhysical());
            } else {
                text.word("a kind of value");  // BCD and ASCII stay numbers
                text.skipStatement();
            }
        }
        sortTexts(encoding.texts);
        encodings[name] = std::move(encoding);
    }

    ScaledRange readPhysical() {
        ScaledRange range{};
        text.expect(',', "a physical value");
        range.least = text.raw("a physical value's least raw value");
        text.expect(',', "a physical value");
        range.most = text.raw("a physical value's greatest raw value");
        text.expect(',', "a physical value");
        range.factor = text.number("a physical value's factor");
        const std::size_t line = text.getLine();
        text.expect(',', "a physical value");
        range.offset = text.number("a physical value's offset");
        if (text.take(',')) {
            range.unit = text.quotedName("a physical value's unit", false);
        }
        text.expect(';', "a physical value");
        if (range.factor == 0.0) {
            text.notice(database, line,
                        fmt::format("a factor is 0: the value is {} always", range.offset));
        }
        return range;
    }

    /// ENCODING: SIGNAL, SIGNAL;
    void readRepresentation() {
        const std::string name = text.name("an encoding's name");
        text.expect(':', "a representation");
        do {
            encodingOf[text.name("a signal's name")] = {name, text.getLine()};
        } while (text.take(','));
        text.expect(';', "a representation");
    }

    void encode(SignalDefinition& signal) {
        const auto used = encodingOf.find(signal.name);
        if (used == encodingOf.end()) {
            return;
        }
        const auto found = encodings.find(used->second.name);
        if (found == encodings.end()) {
            text.failAt(used->second.line, fmt::format("there is no encoding {} "
                                                       "(Signal_encoding_types)",
                                                       used->second.name));
        }
        const Encoding& encoding = found->second;
        if (!budget.take(encoding.texts, encoding.ranges)) {
            text.failAt(used->second.line, "there are more texts of values than any database has");
        }
        signal.texts = encoding.texts;
        if (encoding.ranges.empty()) {
            return;
        }
        const ScaledRange& first = encoding.ranges.front();
        signal.factor = first.factor;
        signal.offset = first.offset;
        signal.unit = first.unit;
        signal.minimum = static_cast<double>(first.least) * first.factor + first.offset;
        signal.maximum = static_cast<double>(first.most) * first.factor + first.offset;
        if (signal.minimum > signal.maximum) {
            std::swap(signal.minimum, signal.maximum);
        }
        if (encoding.ranges.size() > 1) {
            signal.ranges = encoding.ranges;
        }
    }

    struct Use {
        std::string name;
        std::size_t line = 0;
    };

    DefinitionText text;
    Database database;
    std::unordered_map<std::string, SignalDefinition> signals;
    std::unordered_map<std::string, Encoding> encodings;
    std::unordered_map<std::string, Use> encodingOf;  ///< by signal
    std::size_t encodingCount = 0;
    TextBudget budget;
};

}  // namespace

Database readLdf(const std::string& path) {
    return LdfReader(path).read();
}

}  // namespace station
