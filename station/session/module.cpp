#include "station/session/module.h"

#include <fmt/format.h>

#include "core/parse_number.h"
#include "station/errors.h"

namespace station {
namespace {

[[noreturn]] void refuse(const std::string& text, const char* reason) {
    throw UserError(
        fmt::format("--module \"{}\": {}; write TYPE:CONFIGID[:NAME], as in "
                    "\"CAN combo:5:Front\"",
                    text, reason));
}

}  // namespace

std::vector<std::string> databaseFiles(const Channel& channel, const std::filesystem::path& setup) {
    std::vector<std::string> files;
    for (const std::string& path : channel.databases) {
        files.push_back((setup.parent_path() / path).string());
    }
    return files;
}

Module parseModule(const std::string& text) {
    const std::size_t first = text.find(':');
    if (first == std::string::npos || first == 0) {
        refuse(text, "a type and a ConfigId are needed");
    }
    const std::size_t second = text.find(':', first + 1);
    Module module;
    module.type = text.substr(0, first);
    const std::string number = text.substr(
        first + 1, second == std::string::npos ? std::string::npos : second - first - 1);
    if (second != std::string::npos) {
        module.name = text.substr(second + 1);
    }
    const auto configId = parseDecimalOrHex<std::uint16_t>(number);
    if (!configId) {
        refuse(text, "the ConfigId must be a number from 0 to 65535");
    }
    module.configId = *configId;
    return module;
}

}  // namespace station
