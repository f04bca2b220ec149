#include "station/signals/dbc_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "station/signals/dbc_switches.h"
#include "station/signals/definition_text.h"

namespace station {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t mostMessages = 65536;
constexpr std::size_t mostSignals = 500'000;
/// Of a message: at 11 ns a signal so many are decoded in some 50 us.
constexpr std::size_t mostOfMessage = 4096;
constexpr std::size_t mostRanges = 1'000'000;
constexpr std::uint64_t mostBytesOfMessage = 65535;
constexpr std::uint32_t extendedMark = 0x8000'0000U;
constexpr std::uint32_t mostExtended = 0x1FFF'FFFFU;
constexpr std::uint32_t mostStandard = 0x7FFU;
/// Not a message: what carries the signals that belong to none.
constexpr std::uint32_t withoutMessage = 0xC000'0000U;
constexpr std::string_view nobody = "Vector__XXX";

constexpr std::array keywords = {
    "BA_"sv,         "BA_DEF_"sv,       "BA_DEF_DEF_"sv,  "BA_DEF_DEF_REL_"sv,
    "BA_DEF_REL_"sv, "BA_REL_"sv,       "BO_"sv,          "BO_TX_BU_"sv,
    "BS_"sv,         "BU_"sv,           "BU_BO_REL_"sv,   "BU_EV_REL_"sv,
    "BU_SG_REL_"sv,  "CM_"sv,           "ENVVAR_DATA_"sv, "EV_"sv,
    "EV_DATA_"sv,    "NS_"sv,           "NS_DESC_"sv,     "SGTYPE_"sv,
    "SGTYPE_VAL_"sv, "SG_"sv,           "SG_MUL_VAL_"sv,  "SIGTYPE_VALTYPE_"sv,
    "SIG_GROUP_"sv,  "SIG_TYPE_REF_"sv, "SIG_VALTYPE_"sv, "VAL_"sv,
    "VAL_TABLE_"sv,  "VERSION"sv};

/// Also those of a newer format: all of them are capital letters with a "_" at the end.
bool isKeyword(std::string_view word) {
    return std::ranges::find(keywords, word) != keywords.end() ||
           (word.size() > 2 && word.ends_with('_') &&
            word.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_") ==
                std::string_view::npos);
}

class DbcReader {
  public:
    explicit DbcReader(const std::string& path) : text(path) { database.file = path; }

    Database read() {
        while (!text.isAtEnd()) {
            readStatement();
        }
        if (database.messages.empty()) {
            text.fail("the file ends without a message (BO_); is it a database of CAN messages?");
        }
        for (std::size_t i = 0; i < database.messages.size(); ++i) {
            connectSwitches(database, i, notes[i], text);
            if (!notes[i].hasCycle) {
                setCycle(database.messages[i], defaultCycle);
            }
        }
        setLongNames();
        return std::move(database);
    }

  private:
    struct LongName {
        std::size_t message;
        std::size_t signal;
        std::string name;
    };

    void readStatement() {
        const std::string_view keyword = text.peekWord();
        if (!isKeyword(keyword)) {
            text.failHere(
                fmt::format("no statement of a .dbc begins with {}", text.describeNext()));
        }
        text.takeWord(keyword);
        if (keyword == "BO_") {
            readMessage();
        } else if (keyword == "SG_") {
            readSignal();
        } else if (keyword == "CM_") {
            readComment();
        } else if (keyword == "VAL_") {
            readValueTexts();
        } else if (keyword == "VAL_TABLE_") {
            readTable();
        } else if (keyword == "SIG_VALTYPE_") {
            readKind();
        } else if (keyword == "SG_MUL_VAL_") {
            readRanges();
        } else if (keyword == "BA_DEF_DEF_") {
            readDefault();
        } else if (keyword == "BA_") {
            readAttribute();
        } else if (keyword == "VERSION") {
            text.quoted("the version", true);
        } else if (keyword == "NS_") {
            text.expect(':', "NS_");
            text.skipLonelyWords();
        } else {
            text.skipStatement(isKeyword);
        }
    }

    std::uint32_t readIdentifier() {
        return static_cast<std::uint32_t>(
            text.whole("a message's identifier", std::numeric_limits<std::uint32_t>::max()));
    }

    void readMessage() {
        MessageDefinition message;
        const std::uint32_t id = readIdentifier();
        const std::size_t line = text.getLine();
        const bool isNone = (id & withoutMessage) == withoutMessage;
        message.isExtended = (id & extendedMark) != 0;
        message.id = id & ~extendedMark;
        if (!isNone && message.id > (message.isExtended ? mostExtended : mostStandard)) {
            text.fail(message.isExtended
                          ? fmt::format("identifier {} has more than 29 bits behind bit 31", id)
                          : fmt::format("identifier {} has more than 11 bits, and bit 31, the mark "
                                        "of an extended one, isn't set",
                                        id));
        }
        message.name = text.name("a message's name");
        text.expect(':', "a message");
        message.length = text.whole("a message's length", mostBytesOfMessage);
        if (text.peekWord() != "SG_" && !isKeyword(text.peekWord())) {
            message.sender = text.name("a message's sender");
            message.sender = message.sender == nobody ? "" : message.sender;
        }
        isInMessage = true;
        current = nullptr;
        if (isNone) {
            return;
        }
        const auto [found, isNew] = places.try_emplace(id, database.messages.size());
        if (!isNew) {
            text.notice(
                database, line,
                fmt::format("{} has the identifier of {} (line {}), which counts", message.name,
                            database.messages[found->second].name, notes[found->second].line));
            return;
        }
        if (database.messages.size() == mostMessages) {
            text.fail(fmt::format("there are more than {} messages", mostMessages));
        }
        database.messages.push_back(std::move(message));
        notes.emplace_back().line = line;
        current = &database.messages.back();
    }

    void readSignal() {
        if (!isInMessage) {
            text.fail("a signal (SG_) stands in front of the first message (BO_)");
        }
        if (current != nullptr && current->signals.size() == mostOfMessage) {
            text.fail(fmt::format("{} has more than {} signals", current->name, mostOfMessage));
        }
        if (++signalCount > mostSignals) {
            text.fail(fmt::format("there are more than {} signals", mostSignals));
        }
        SignalDefinition signal;
        signal.name = text.name("a signal's name");
        const std::size_t line = text.getLine();
        if (!text.take(':')) {
            readSwitch(signal.multiplexing);
            text.expect(':', "a signal");
        }
        signal.startBit = static_cast<std::uint32_t>(
            text.whole("a signal's start bit", mostBytesOfMessage * 8 - 1));
        text.expect('|', "a signal");
        signal.size = static_cast<std::uint32_t>(text.whole("a signal's size", 64));
        if (signal.size == 0) {
            text.fail(fmt::format("signal {} has no bits", signal.name));
        }
        text.expect('@', "a signal");
        signal.byteOrder = text.whole("a signal's byte order", 1) == 1 ? ByteOrder::LittleEndian
                                                                       : ByteOrder::BigEndian;
        if (text.take('-')) {
            signal.kind = ValueKind::Signed;
        } else {
            text.expect('+', "a signal");
        }
        readScale(signal);
        signal.unit = text.quotedName("a signal's unit", true);
        // Its receivers: nothing that is needed.
        while (!text.peekWord().empty() && !isKeyword(text.peekWord())) {
            text.word("a receiver");
            text.take(',');
        }
        addSignal(std::move(signal), line);
    }

    /// "M", "m3" or "m3M".
    void readSwitch(Multiplexing& multiplexing) {
        std::string_view word = text.word("the kind of a multiplexed signal");
        const std::string_view all = word;
        if (word.ends_with('M')) {
            multiplexing.isSwitch = true;
            word.remove_suffix(1);
        }
        const auto value = parseNumber<std::uint64_t>(word.substr(word.empty() ? 0 : 1));
        if (word.starts_with('m') && value) {
            multiplexing.ranges.push_back({*value, *value});
        } else if (!word.empty() || !multiplexing.isSwitch) {
            text.fail(fmt::format("\"{}\" is no kind of a multiplexed signal, as M and m3 are",
                                  DefinitionText::toUtf8(all.substr(0, 30))));
        }
    }

    void readScale(SignalDefinition& signal) {
        text.expect('(', "a signal's factor and offset");
        signal.factor = text.number("a signal's factor");
        text.expect(',', "a signal's factor and offset");
        signal.offset = text.number("a signal's offset");
        text.expect(')', "a signal's factor and offset");
        text.expect('[', "a signal's limits");
        signal.minimum = text.number("a signal's minimum");
        text.expect('|', "a signal's limits");
        signal.maximum = text.number("a signal's maximum");
        text.expect(']', "a signal's limits");
    }

    void addSignal(SignalDefinition signal, std::size_t line) {
        if (current == nullptr) {
            return;
        }
        if (!notes.back().signals.try_emplace(signal.name, current->signals.size()).second) {
            text.failAt(line,
                        fmt::format("{} has a signal {} already", current->name, signal.name));
        }
        if (signal.factor == 0.0) {
            text.notice(database, line,
                        fmt::format("the factor of {} is 0: its value is {} always", signal.name,
                                    signal.offset));
        }
        if (signal.getEndByte() > current->length) {
            text.notice(
                database, line,
                fmt::format("{} lies outside of the {} bytes of {}: it is there in "
                            "messages of {} bytes or more",
                            signal.name, current->length, current->name, signal.getEndByte()));
        }
        current->signals.push_back(std::move(signal));
        notes.back().signalLines.push_back(line);
    }

    /// Null for one that isn't in the database, or was dropped from it.
    MessageDefinition* findMessage() {
        const auto found = places.find(readIdentifier());
        place = found == places.end() ? 0 : found->second;
        return found == places.end() ? nullptr : &database.messages[place];
    }
    /// Null as above, and for a signal that isn't there.
    SignalDefinition* findSignal() {
        MessageDefinition* const message = findMessage();
        const std::string name = text.name("a signal's name");
        if (message == nullptr) {
            return nullptr;
        }
        const auto found = notes[place].signals.find(name);
        signalPlace = found == notes[place].signals.end() ? 0 : found->second;
        return found == notes[place].signals.end() ? nullptr : &message->signals[signalPlace];
    }

    void readComment() {
        std::string* to = nullptr;
        if (text.takeWord("BO_")) {
            MessageDefinition* const message = findMessage();
            to = message == nullptr ? nullptr : &message->comment;
        } else if (text.takeWord("SG_")) {
            SignalDefinition* const signal = findSignal();
            to = signal == nullptr ? nullptr : &signal->comment;
        } else if (!text.isQuoted()) {
            text.skipStatement();
            return;
        }
        std::string comment = text.quoted("a comment", true);
        text.expect(';', "a comment");
        if (to != nullptr) {
            *to = std::move(comment);
        }
    }

    std::vector<ValueText> readTexts() {
        std::vector<ValueText> texts;
        while (!text.take(';')) {
            const std::int64_t raw = text.raw("a value");
            texts.push_back({raw, text.quoted("a value's text", true)});
        }
        sortTexts(texts);
        takeFromBudget(texts);
        return texts;
    }

    void takeFromBudget(const std::vector<ValueText>& texts) {
        if (!budget.take(texts)) {
            text.fail("there are more texts of values than any database has");
        }
    }

    void readValueTexts() {
        const std::string_view first = text.peekWord();
        if (first.empty() || first.front() < '0' || first.front() > '9') {
            text.skipStatement();  // of an environment variable
            return;
        }
        SignalDefinition* const signal = findSignal();
        std::vector<ValueText> texts;
        if (const std::string_view next = text.peekWord();
            !next.empty() && (next.front() < '0' || next.front() > '9')) {
            const auto table = tables.find(text.name("a table's name"));
            text.expect(';', "the texts of a signal's values");
            if (table == tables.end()) {
                text.fail("there is no such table of values (VAL_TABLE_) in front of here");
            }
            takeFromBudget(table->second);
            texts = table->second;
        } else {
            texts = readTexts();
        }
        if (signal != nullptr) {
            signal->texts = std::move(texts);
        }
    }

    void readTable() {
        std::string name = text.name("a table's name");
        tables[std::move(name)] = readTexts();
    }

    void readKind() {
        SignalDefinition* const signal = findSignal();
        text.take(':');
        const std::uint64_t kind = text.whole("a kind of value (0 integer, 1 float, 2 double)", 2);
        const std::size_t line = text.getLine();
        text.expect(';', "a kind of value");
        if (signal == nullptr || kind == 0) {
            return;
        }
        const std::uint32_t size = kind == 1 ? 32 : 64;
        if (signal->size != size) {
            text.failAt(line, fmt::format("{} has {} bits and not the {} of a {}", signal->name,
                                          signal->size, size, kind == 1 ? "float" : "double"));
        }
        signal->kind = kind == 1 ? ValueKind::Float32 : ValueKind::Float64;
    }

    void readRanges() {
        SignalDefinition* const signal = findSignal();
        std::string name = text.name("a switch's name");
        std::vector<Multiplexing::Range> ranges;
        do {
            Multiplexing::Range range{};
            range.least = text.whole("a switch's value", std::numeric_limits<std::uint64_t>::max());
            text.expect('-', "a range of a switch's values");
            range.most = text.whole("a switch's value", std::numeric_limits<std::uint64_t>::max());
            if (range.most < range.least) {
                text.fail(fmt::format("a range of a switch's values ends at {}, before it begins",
                                      range.most));
            }
            if (++rangeCount > mostRanges) {
                text.fail(fmt::format("there are more than {} ranges of values", mostRanges));
            }
            ranges.push_back(range);
        } while (text.take(','));
        text.expect(';', "the values of a switch");
        if (signal != nullptr) {
            signal->multiplexing.switchName = std::move(name);
            signal->multiplexing.ranges = std::move(ranges);
        }
    }

    void readDefault() {
        const std::string name = text.quoted("an attribute's name", true);
        if (name == cycleAttribute && !text.isQuoted()) {
            defaultCycle = text.number("the default of an attribute");
        }
        text.skipStatement();
    }

    void readAttribute() {
        const std::string name = text.quoted("an attribute's name", true);
        if (name == cycleAttribute && text.takeWord("BO_")) {
            MessageDefinition* const message = findMessage();
            const double milliseconds =
                text.isQuoted() ? 0.0 : text.number("the value of an attribute");
            if (message != nullptr) {
                setCycle(*message, milliseconds);
                notes[place].hasCycle = true;
            }
        } else if (name == "SystemMessageLongSymbol" && text.takeWord("BO_")) {
            MessageDefinition* const message = findMessage();
            std::string value = text.quotedName("a message's name", true);
            if (message != nullptr && !value.empty()) {
                message->name = std::move(value);
            }
        } else if (name == "SystemSignalLongSymbol" && text.takeWord("SG_")) {
            SignalDefinition* const signal = findSignal();
            std::string value = text.quotedName("a signal's name", true);
            if (signal != nullptr && !value.empty()) {
                longNames.push_back({place, signalPlace, std::move(value)});
            }
        }
        text.skipStatement();
    }

    static void setCycle(MessageDefinition& message, double milliseconds) {
        message.cycleTime =
            milliseconds > 0.0 ? std::optional(milliseconds / 1000.0) : std::nullopt;
    }

    void setLongNames() {
        for (LongName& each : longNames) {
            database.messages[each.message].signals[each.signal].name = std::move(each.name);
        }
        for (MessageDefinition& message : database.messages) {
            for (SignalDefinition& signal : message.signals) {
                Multiplexing& own = signal.multiplexing;
                if (own.switchIndex != Multiplexing::none) {
                    own.switchName = message.signals[own.switchIndex].name;
                }
            }
        }
    }

    static constexpr std::string_view cycleAttribute = "GenMsgCycleTime";

    DefinitionText text;
    Database database;
    std::vector<DbcMessageNotes> notes;                     ///< by message
    std::unordered_map<std::uint32_t, std::size_t> places;  ///< by identifier with bit 31
    std::unordered_map<std::string, std::vector<ValueText>> tables;
    std::vector<LongName> longNames;
    bool isInMessage = false;              ///< signals may come
    MessageDefinition* current = nullptr;  ///< whose they are; null: they are passed over
    std::size_t place = 0;                 ///< of the message that was looked for last
    std::size_t signalPlace = 0;           ///< the same of a signal
    std::size_t signalCount = 0;
    TextBudget budget;
    std::size_t rangeCount = 0;
    double defaultCycle = 0.0;
};

}  // namespace

Database readDbc(const std::string& path) {
    return DbcReader(path).read();
}

}  // namespace station
