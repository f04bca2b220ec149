#include "station/gui/live_plot.h"

#include <algorithm>

namespace station {

LivePlot::LivePlot(LiveFeed& liveFeed) : feed(liveFeed), panel(new PlotPanel) {
    panel->setOnRemove([this](std::size_t number) {
        taps.remove(number);
        std::erase_if(plotted, [&](const Plotted& entry) { return entry.number == number; });
    });
}

void LivePlot::add(const LiveFeed& shown, const SignalTaps::Signal& signal) {
    const SignalDefinition* const definition = SignalTaps::find(shown, signal);
    if (definition == nullptr) {
        return;
    }
    const std::string& channel = shown.getChannels()[signal.channel].name;
    const auto isThere = [&](const Plotted& entry) {
        return entry.channel == channel && entry.name == definition->name &&
               entry.id == signal.id && entry.isExtended == signal.isExtended;
    };
    if (std::ranges::any_of(plotted, isThere)) {
        return;
    }
    const std::size_t number =
        panel->addSignal(QString::fromStdString(definition->name + " (" + channel + ')'),
                         QString::fromStdString(definition->unit));
    plotted.push_back({number, channel, definition->name, signal.id, signal.isExtended});
    tap(plotted.back());
}

bool LivePlot::tap(const Plotted& entry) {
    const auto& channels = feed.getChannels();
    const auto channel = std::ranges::find(channels, entry.channel, &LiveChannel::name);
    const Decoder::Message* const message =
        channel != channels.end() ? channel->findMessage(entry.id, entry.isExtended) : nullptr;
    if (message == nullptr) {
        return false;
    }
    const auto& all = message->getDefinition().signals;
    const auto signal = std::ranges::find(all, entry.name, &SignalDefinition::name);
    panel->setStart(feed.getStart());
    taps.add(entry.number, feed,
             {static_cast<std::size_t>(channel - channels.begin()), entry.id, entry.isExtended,
              static_cast<std::size_t>(signal - all.begin())},
             [this, number = entry.number](std::int64_t utc, double value) {
                 panel->append(number, utc, value);
             });
    return signal != all.end();
}

void LivePlot::update(std::chrono::milliseconds atMost) {
    if (feed.isAwaitingDecoders()) {
        return;  // with them it is known which signals there are
    }
    if (generation != feed.getGeneration()) {
        generation = feed.getGeneration();
        panel->clear();
        taps.clear();
        std::erase_if(plotted, [this](const Plotted& entry) {
            const bool isThere = tap(entry);
            if (!isThere) {
                panel->removeSignal(entry.number);
            }
            return !isThere;
        });
    }
    taps.update(feed, atMost);
}

}  // namespace station
