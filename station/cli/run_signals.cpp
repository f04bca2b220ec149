#include "station/cli/run_signals.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <utility>

#include "station/errors.h"
#include "station/terminal_text.h"

namespace station {

RunSignals::RunSignals(const std::vector<std::string>& databases) {
    for (const std::string& text : databases) {
        decoders.add(text);
    }
}

void RunSignals::readSetup(const std::string& setup, const std::vector<Module>& modules) {
    setupFile = setup;
    for (const Module& module : modules) {
        for (const Channel& channel : module.channels) {
            for (const std::string& file :
                 channel.isUsed ? databaseFiles(channel, setup) : std::vector<std::string>()) {
                decoders.load(file);
            }
        }
    }
}

void RunSignals::open(const Summary& measured) {
    const std::vector<ChannelSummary>& channels = measured.channels;
    std::vector<std::shared_ptr<const Decoder>> found;
    bool hasAny = false;
    for (const ChannelSummary& channel : channels) {
        found.push_back(decoders.find(
            {channel.name, channel.bus},
            setupFile ? measured.findDatabases(channel, *setupFile) : std::vector<std::string>()));
        hasAny |= found.back() != nullptr;
    }
    printMessages(decoders.takeNotices());
    if (const auto unknown = decoders.getUnknownChannels(); !unknown.empty()) {
        throw UserError(fmt::format("--db: no channel that is used is named \"{}\"",
                                    fmt::join(unknown, "\", \"")));
    }
    if (hasAny) {
        watch = std::make_unique<SignalWatch>(std::move(found));
    }
}

void RunSignals::addTo(Summary& summary) {
    for (std::size_t i = 0; watch && i < summary.channels.size(); ++i) {
        if (!watch->hasDatabase(i)) {
            continue;
        }
        ChannelSummary& channel = summary.channels[i];
        channel.undefined = watch->getUndefined(i);
        channel.messages.emplace();
        for (const SignalWatch::Message& message : watch->getMessages(i)) {
            MessageSummary& entry = channel.messages->emplace_back(
                MessageSummary{message.definition->id, message.definition->isExtended,
                               message.definition->name, message.count});
            for (const SignalWatch::Signal& signal : message.signals) {
                if (signal.count != 0) {
                    entry.signals.push_back(
                        {signal.last.definition->name, signal.last.value, *signal.last.unit,
                         signal.last.text == nullptr ? "" : *signal.last.text, signal.count});
                }
            }
        }
    }
}

}  // namespace station
