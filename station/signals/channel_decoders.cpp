#include "station/signals/channel_decoders.h"

#include <fmt/format.h>

#include <filesystem>
#include <iterator>
#include <utility>

#include "station/errors.h"

namespace station {
namespace {

const char* nameOf(BusType bus) {
    return bus == BusType::Lin ? "LIN" : "CAN";
}

void requireSameBus(const Database& database, const ChannelDescription& channel) {
    if (database.bus != channel.bus) {
        throw UserError(fmt::format("{} is a database of {}, and \"{}\" is a channel of {}",
                                    database.file, nameOf(database.bus), channel.name,
                                    nameOf(channel.bus)));
    }
}

}  // namespace

std::shared_ptr<const Database> ChannelDecoders::read(const std::string& path) {
    std::shared_ptr<const Database>& known = databases[path];
    if (!known) {
        known = std::make_shared<const Database>(readDatabase(path));
        notices.insert(notices.end(), known->notices.begin(), known->notices.end());
    }
    return known;
}

void ChannelDecoders::add(const std::string& text) {
    std::error_code ignored;
    const std::size_t sign = text.find('=');
    if (sign == std::string::npos || sign == 0 || std::filesystem::exists(text, ignored)) {
        files.push_back({"", read(text)});
    } else if (sign + 1 == text.size()) {
        throw UserError(fmt::format("--db \"{}\": write the file's name behind the =", text));
    } else {
        files.push_back({text.substr(0, sign), read(text.substr(sign + 1))});
    }
}

std::shared_ptr<const Decoder> ChannelDecoders::find(const ChannelDescription& channel,
                                                     const std::vector<std::string>& behind) {
    for (const std::string& path : behind) {
        files.push_back({channel.name, read(path), true});
    }
    std::vector<const Database*> wanted;
    const auto take = [&](bool isOwn, bool isBehind) {
        for (File& file : files) {
            if (file.isBehind == isBehind && file.channel == (isOwn ? channel.name : "") &&
                (isOwn || file.database->bus == channel.bus)) {
                requireSameBus(*file.database, channel);
                file.wasAskedFor = true;
                wanted.push_back(file.database.get());
            }
        }
    };
    take(true, false);
    take(false, false);
    take(true, true);
    if (wanted.empty()) {
        return nullptr;
    }
    std::shared_ptr<const Decoder>& decoder = made[wanted];
    if (!decoder) {
        auto all = std::make_shared<Database>(*wanted.front());
        all->notices.clear();
        for (std::size_t i = 1; i < wanted.size(); ++i) {
            Database more = *wanted[i];
            more.notices.clear();
            addDatabase(*all, std::move(more));
        }
        notices.insert(notices.end(), all->notices.begin(), all->notices.end());
        decoder = std::make_shared<const Decoder>(std::move(all));
    }
    return decoder;
}

std::vector<std::string> ChannelDecoders::takeNotices() {
    return std::exchange(notices, {});
}

std::vector<std::string> ChannelDecoders::describeUnused() const {
    std::vector<std::string> texts;
    for (const File& file : files) {
        if (file.channel.empty() && !file.wasAskedFor) {
            texts.push_back(fmt::format("{} is a database of {}, and there are no messages of it",
                                        file.database->file, nameOf(file.database->bus)));
        }
    }
    return texts;
}

std::vector<std::string> ChannelDecoders::getUnknownChannels() const {
    std::vector<std::string> unknown;
    for (const File& file : files) {
        if (!file.channel.empty() && !file.isBehind && !file.wasAskedFor) {
            unknown.push_back(file.channel);
        }
    }
    return unknown;
}

}  // namespace station
