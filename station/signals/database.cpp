#include "station/signals/database.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include "station/errors.h"
#include "station/signals/dbc_reader.h"
#include "station/signals/ldf_reader.h"

namespace station {

Database readDatabase(const std::string& path) {
    const std::string ending = endingOf(path);
    if (ending == ".dbc") {
        return readDbc(path);
    }
    if (ending == ".ldf") {
        return readLdf(path);
    }
    throw UserError(
        fmt::format("{} is no database that can be read: name a .dbc (CAN) or a .ldf (LIN)", path));
}

void addDatabase(Database& database, Database more) {
    if (more.bus != database.bus) {
        throw UserError(fmt::format("{} and {} are of different buses", database.file, more.file));
    }
    std::set<std::pair<bool, std::uint32_t>> known;
    for (const MessageDefinition& message : database.messages) {
        known.emplace(message.isExtended, message.id);
    }
    std::ranges::move(more.notices, std::back_inserter(database.notices));
    std::size_t left = 0;
    for (MessageDefinition& message : more.messages) {
        if (known.contains({message.isExtended, message.id})) {
            ++left;
        } else {
            database.messages.push_back(std::move(message));
        }
    }
    if (left != 0) {
        database.notices.push_back(
            fmt::format("{}: {} messages have identifiers of {}, which counts", more.file, left,
                        database.file));
    }
    database.file += ", " + more.file;
}

}  // namespace station
