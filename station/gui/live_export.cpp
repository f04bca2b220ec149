#include "station/gui/live_export.h"

#include <fmt/format.h>

#include <cstring>
#include <utility>

#include "station/recording/bus_record.h"

namespace station {
namespace {

constexpr std::size_t noHandle = static_cast<std::size_t>(-1);

}  // namespace

LiveExport::LiveExport(const LiveFeed& picture, MessageList rows, const std::string& filePath)
    : channels(picture.getChannels()),
      messages(picture.getMessages()),
      list(std::move(rows)),
      path(filePath),
      recording(openRecording(filePath, true)) {
    for (const LiveChannel& channel : channels) {
        handles.push_back(recording->accepts(channel.bus)
                              ? recording->addChannel({channel.name, channel.bus})
                              : noHandle);
    }
    writer = std::jthread([this](const std::stop_token& stop) { write(stop); });
}

LiveExport::~LiveExport() = default;

void LiveExport::write(const std::stop_token& stop) {
    for (std::size_t i = 0; i < list.size() && !stop.stop_requested(); ++i) {
        const auto message = messages.find(list.getNumber(i));
        const std::size_t handle = message ? handles[message->channel] : noHandle;
        if (handle == noHandle) {
            ++leftOut;
        } else {
            std::uint8_t record[CanRecord::size] = {};
            std::memcpy(record, message->record, message->size);
            const bool isCan = channels[message->channel].bus == BusType::Can;
            recording->write(handle, message->utc, record, isCan ? sizeof record : message->size);
        }
        row.store(i, std::memory_order_relaxed);
    }
    if (!recording->close()) {
        failure = recording->errorText();
    }
    leftOut += recording->recordsLost();
    over.store(true);
}

std::string LiveExport::describe() const {
    if (!isOver()) {
        return fmt::format("Writing {}: {:.0f} %", path,
                           100.0 * static_cast<double>(row.load()) /
                               static_cast<double>(std::max<std::size_t>(list.size(), 1)));
    }
    const std::string rest = leftOut == 0 ? "" : fmt::format("; {} messages aren't in it", leftOut);
    return failure.empty()
               ? fmt::format("{} has {} messages{}", path, recording->recordsWritten(), rest)
               : fmt::format("{}{}", failure, rest);
}

}  // namespace station
