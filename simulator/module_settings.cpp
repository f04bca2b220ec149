#include "simulator/module_settings.h"

#include <fmt/format.h>
#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>

#include "simulator/failure.h"

namespace sim {

namespace {

constexpr std::array<std::uint16_t, 10> linComboInterfaces = {0x10, 0x20, 0x30, 0x40, 0x50,
                                                              0x60, 0x70, 0x80, 0x90, 0xA0};
constexpr std::array<std::uint16_t, 7> canComboInterfaces = {0x10, 0x20, 0x30, 0x40,
                                                             0x50, 0x60, 0x70};
/// No interface 10: this module doesn't report one.
constexpr std::array<std::uint16_t, 19> neoviFire3Interfaces = {
    1, 2, 3, 4, 5, 6, 7, 8, 9, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20};

constexpr std::array<ModuleType, 3> types = {{
    {"LIN combo", 2, 0x30, Bus::Lin, Framing::Tecmp, linComboInterfaces},
    {"CAN combo", 4, 0x40, Bus::Can, Framing::Tecmp, canComboInterfaces},
    {"NeoviFire3", 0, 0, Bus::Can, Framing::AsamCmp, neoviFire3Interfaces},
}};

constexpr std::uint16_t configIdMask = 0x0F;

}  // namespace

std::string_view toText(Bus bus) {
    return bus == Bus::Can ? "CAN" : "LIN";
}

std::string_view toText(Framing framing) {
    return framing == Framing::Tecmp ? "tecmp" : "asam";
}

std::uint16_t ModuleType::cmIdOf(std::uint16_t configId) const {
    if (configId > configIdMask)
        return configId;
    return static_cast<std::uint16_t>(baseId | configId);
}

std::uint16_t ModuleType::configIdOf(std::uint16_t cmId) const {
    return baseId == 0 ? cmId : cmId & configIdMask;
}

std::span<const ModuleType> moduleTypes() {
    return types;
}

const ModuleType* findModuleType(std::string_view name) {
    const auto same = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) ==
               std::tolower(static_cast<unsigned char>(b));
    };
    const auto found = std::find_if(types.begin(), types.end(), [&](const ModuleType& type) {
        return std::equal(type.name.begin(), type.name.end(), name.begin(), name.end(), same);
    });
    return found == types.end() ? nullptr : &*found;
}

namespace {

constexpr std::array<std::uint8_t, 16> canFdLengths = {0, 1,  2,  3,  4,  5,  6,  7,
                                                       8, 12, 16, 20, 24, 32, 48, 64};
constexpr unsigned maxLength = 64;
constexpr unsigned maxLinLength = 8;

/// The whole text as a number.
template <typename Number, typename... Base>
bool parseNumber(std::string_view text, Number& value, Base... base) {
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), value, base...);
    return error == std::errc() && end == text.data() + text.size();
}

unsigned parseLength(std::string_view text, std::string_view whole) {
    unsigned value = 0;
    if (!parseNumber(text, value) || value > maxLength)
        throw Failure(ExitCode::WrongUse,
                      fmt::format("--length {}: give a number of data bytes from 0 to 64, or a "
                                  "range such as 4-8",
                                  whole));
    return value;
}

}  // namespace

LengthRange LengthRange::parse(std::string_view text) {
    const auto dash = text.find('-');
    LengthRange range;
    range.from = parseLength(text.substr(0, dash), text);
    range.to =
        dash == std::string_view::npos ? range.from : parseLength(text.substr(dash + 1), text);
    if (range.from > range.to)
        throw Failure(ExitCode::WrongUse,
                      fmt::format("--length {}: the shorter length comes first", text));
    const bool possible = std::any_of(canFdLengths.begin(), canFdLengths.end(),
                                      [&](unsigned n) { return n >= range.from && n <= range.to; });
    if (!possible)
        throw Failure(ExitCode::WrongUse,
                      fmt::format("--length {}: CAN FD knows no such length; possible are 0 to 8, "
                                  "12, 16, 20, 24, 32, 48 and 64",
                                  text));
    return range;
}

std::vector<std::uint8_t> LengthRange::lengthsFor(Bus bus, Framing framing) const {
    const unsigned least = bus == Bus::Lin || framing == Framing::AsamCmp ? 1 : 0;
    const unsigned most = bus == Bus::Lin ? maxLinLength : maxLength;
    const unsigned low = std::clamp(from, least, most);
    const unsigned high = std::clamp(to, low, most);
    std::vector<std::uint8_t> result;
    for (const std::uint8_t length : canFdLengths)
        if (length >= low && length <= high)
            result.push_back(length);
    return result;
}

std::uint64_t MessageSchedule::countBefore(std::int64_t endNs) const {
    const auto second = static_cast<std::uint64_t>(nsPerSecond);
    const auto end = static_cast<std::uint64_t>(endNs);
    return end / second * perSecond + (end % second * perSecond + second - 1) / second;
}

namespace {

constexpr std::uint32_t firstSerial = 100000;
/// From here on a TECMP frame can't be distinguished from an ASAM CMP one: the upper byte does it.
constexpr std::uint16_t firstCmIdBeyondTecmp = 0x100;

[[noreturn]] void refuse(std::string_view module, std::string_view why) {
    throw Failure(ExitCode::WrongUse, fmt::format("--module \"{}\": {}", module, why));
}

std::uint16_t parseConfigId(std::string_view text, std::string_view whole) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = hex ? text.substr(2) : text;
    std::uint16_t value = 0;
    if (!parseNumber(digits, value, hex ? 16 : 10))
        refuse(whole, "CONFIGID is a number up to 65535, decimal or after 0x");
    return value;
}

double parseSeconds(std::string_view text, double limit, std::string_view key,
                    std::string_view whole) {
    double value = 0;
    if (!parseNumber(text, value) || !(std::abs(value) <= limit))
        refuse(whole, fmt::format("{} is a number between -{} and {}", key, limit, limit));
    return value;
}

/// Reads "NAME=VALUE" options into the settings.
class OptionReader {
  public:
    OptionReader(ModuleSettings& moduleSettings, std::string_view wholeText)
        : settings(moduleSettings), whole(wholeText) {}

    void read(std::string_view option) {
        const auto equals = option.find('=');
        const std::string_view key = option.substr(0, equals);
        const std::string_view value =
            equals == std::string_view::npos ? std::string_view() : option.substr(equals + 1);
        if (key == "framing")
            readFraming(value);
        else if (key == "serial")
            readSerial(value);
        else if (key == "channels")
            readChannels(value);
        else if (key == "drift")
            settings.clock.driftPpm = parseSeconds(value, 100000, key, whole);
        else if (key == "offset")
            settings.clock.offsetSeconds = parseSeconds(value, 4e9, key, whole);
        else if (key == "jump")
            readJump(value);
        else if (key == "jitter")
            settings.clock.jitterSeconds = std::abs(parseSeconds(value, 10, key, whole));
        else
            refuse(whole, fmt::format("there is no option \"{}\"; known are framing, serial, "
                                      "channels, drift, offset, jump and jitter",
                                      key));
    }

  private:
    void readFraming(std::string_view value) {
        if (value != "tecmp" && value != "asam")
            refuse(whole, "framing is tecmp or asam");
        settings.framing = value == "tecmp" ? Framing::Tecmp : Framing::AsamCmp;
    }

    void readSerial(std::string_view value) {
        if (!parseNumber(value, settings.serial))
            refuse(whole, "serial is a number up to 4294967295");
    }

    void readChannels(std::string_view value) {
        const auto most = settings.type->interfaces.size();
        if (!parseNumber(value, settings.channels) || settings.channels < 1 ||
            settings.channels > most)
            refuse(whole, fmt::format("channels is a number from 1 to {}", most));
    }

    void readJump(std::string_view value) {
        const auto at = value.find('@');
        if (at == std::string_view::npos)
            refuse(whole, "jump is SECONDS@WHEN, such as jump=0.9@5");
        settings.clock.jumpSeconds = parseSeconds(value.substr(0, at), 1e9, "jump", whole);
        settings.clock.jumpAtSeconds =
            std::abs(parseSeconds(value.substr(at + 1), 1e9, "jump time", whole));
    }

    ModuleSettings& settings;
    const std::string_view whole;
};

}  // namespace

ModuleSettings ModuleSettings::parse(std::string_view text, std::uint32_t usualSerial) {
    const std::string_view head = text.substr(0, text.find(','));
    const auto colon = head.rfind(':');
    if (colon == std::string_view::npos)
        refuse(text, "give TYPE:CONFIGID, such as \"CAN combo:5\"");
    ModuleSettings settings;
    settings.type = findModuleType(head.substr(0, colon));
    if (settings.type == nullptr)
        refuse(text, "TYPE is one of \"LIN combo\", \"CAN combo\" and \"NeoviFire3\"");
    settings.cmId = settings.type->cmIdOf(parseConfigId(head.substr(colon + 1), text));
    settings.framing = settings.type->usualFraming;
    settings.serial = usualSerial;
    settings.channels = static_cast<unsigned>(settings.type->interfaces.size());

    OptionReader reader(settings, text);
    for (std::string_view rest = text.substr(head.size()); !rest.empty();) {
        rest.remove_prefix(1);
        const std::string_view option = rest.substr(0, rest.find(','));
        reader.read(option);
        rest.remove_prefix(option.size());
    }

    if (settings.framing == Framing::Tecmp && settings.cmId >= firstCmIdBeyondTecmp)
        refuse(text, fmt::format("the CM ID {:#x} is above 0xff, and such a TECMP frame would read "
                                 "as ASAM CMP; take a smaller one, or framing=asam",
                                 settings.cmId));
    if (settings.framing == Framing::AsamCmp && settings.type->bus == Bus::Lin)
        refuse(text, "LIN messages are sent in TECMP only; leave framing=asam out");
    return settings;
}

std::vector<ModuleSettings> parseModules(const std::vector<std::string>& texts) {
    std::vector<ModuleSettings> modules;
    for (const std::string& text : texts) {
        const auto serial = firstSerial + static_cast<std::uint32_t>(modules.size());
        const ModuleSettings next = ModuleSettings::parse(text, serial);
        for (const ModuleSettings& other : modules)
            if (other.cmId == next.cmId)
                refuse(text, fmt::format("another --module has the CM ID {:#x} too; give each a "
                                         "CONFIGID of its own",
                                         next.cmId));
        modules.push_back(next);
    }
    return modules;
}

}  // namespace sim
