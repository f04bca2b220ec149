#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/plugin.h"
#include "station/host/bit_rates.h"

namespace station {

/// One bus of a capture module, and the host's channel that its messages go to.
struct Channel {
    std::uint16_t interfaceId = 0;
    std::string busType;       ///< "CAN FD", "LIN"
    std::int32_t output = -1;  ///< last index of the host's channel; -1: none yet
    std::string name;          ///< UTF-8, as all texts here
    bool isUsed = false;
    std::uint32_t color = 0;  ///< 0xRRGGBB
    /// Files that say what its messages mean (.dbc, .ldf); relative ones to the setup's folder.
    std::vector<std::string> databases = {};
    BitRates bitRates = {};
};

/// A capture module.
struct Module {
    std::string name;
    std::string type;
    std::uint16_t configId = 0;
    std::uint16_t cmId = 0;
    std::string serial = {};
    bool connected = false;
    std::optional<ClockStatistics> clock = {};  ///< how it follows the host's, where that is known
    std::vector<Channel> channels = {};
    std::optional<ModuleStatistics> frames = {};  ///< where that is known
    SenderStatistics senders = {};
    bool timeStandsStill = false;  ///< its messages come, but its device time doesn't advance
};

/// The channel's databases as files, where `setup` is that of the setup.
std::vector<std::string> databaseFiles(const Channel& channel, const std::filesystem::path& setup);

/// A module as the command line names it: "TYPE:CONFIGID[:NAME]", CONFIGID decimal or hexadecimal
/// after "0x". Without a name it has an empty one. Throws `UserError` for a text of another
/// form; whether the type exists is for the caller to say.
Module parseModule(const std::string& text);

}  // namespace station
