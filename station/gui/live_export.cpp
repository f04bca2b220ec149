#include "station/gui/live_export.h"

#include <fmt/format.h>

#include <QFileDialog>
#include <algorithm>
#include <cstring>
#include <utility>

#include "station/recording/bus_record.h"

namespace station {
namespace {

constexpr std::size_t noHandle = static_cast<std::size_t>(-1);

}  // namespace

LiveExport::LiveExport(const LiveFeed& feed, LiveFilter filter, const std::string& filePath)
    : path(filePath),
      task(new Task{feed.getChannels(),
                    feed.getBuses(),
                    feed.getNow(),
                    feed.getMessages(),
                    {},
                    openRecording(filePath, true),
                    {}}) {
    task->list.setFilter(std::move(filter));
    for (const LiveChannel& channel : task->channels) {
        task->handles.push_back(task->recording->accepts(channel.bus)
                                    ? task->recording->addChannel({channel.name, channel.bus})
                                    : noHandle);
    }
    job.start(
        [shared = task](const std::atomic<bool>& isStopped) { return write(*shared, isStopped); });
}

QString LiveExport::write(Task& task, const std::atomic<bool>& isStopped) {
    std::size_t leftOut = 0;
    task.list.finish(task.messages, task.buses, task.now);
    const std::size_t rows = task.list.size();
    for (std::size_t i = 0; i < rows && !isStopped; ++i) {
        const auto message = task.messages.find(task.list.getNumber(i));
        const std::size_t handle = message ? task.handles[message->channel] : noHandle;
        if (handle == noHandle) {
            ++leftOut;
        } else {
            std::uint8_t record[CanRecord::size] = {};
            std::memcpy(record, message->record, message->size);
            const bool isCan = task.channels[message->channel].bus == BusType::Can;
            task.recording->write(handle, message->utc, record,
                                  isCan ? sizeof record : message->size);
        }
        task.share.store(static_cast<double>(i) / static_cast<double>(rows),
                         std::memory_order_relaxed);
    }
    const bool isGood = task.recording->close();
    leftOut += task.recording->getRecordsLost();
    std::string text = isGood ? fmt::format("{} has {} messages", task.recording->getPath(),
                                            task.recording->getRecordsWritten())
                              : task.recording->getErrorText();
    text += leftOut == 0 ? "" : fmt::format("; {} messages aren't in it", leftOut);
    return QString::fromStdString(text);
}

std::string LiveExport::describe() {
    if (const auto ended = job.takeResult()) {
        result = ended->toStdString();
    }
    return !result.empty() ? result
                           : fmt::format("Writing {}: {:.0f} %", path, 100.0 * task->share.load());
}

void askExportPath(QWidget* parent, std::function<void(const QString&)> next) {
    auto* const dialog = new QFileDialog(parent, "Export the messages that pass the filter");
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    QStringList filters;
    QStringList endings;
    for (const RecordingFormat& format : getRecordingFormats()) {
        filters.append(QString("%1 (*%2)").arg(format.what, format.ending));
        endings.append(QString(format.ending).mid(1));
    }
    dialog->setNameFilters(filters);
    dialog->setDefaultSuffix(endings.value(0));
    QObject::connect(dialog, &QFileDialog::filterSelected, dialog, [=](const QString& chosen) {
        dialog->setDefaultSuffix(endings.value(filters.indexOf(chosen)));
    });
    QObject::connect(dialog, &QFileDialog::fileSelected, parent,
                     [next = std::move(next)](const QString& path) { next(path); });
    dialog->open();
}

}  // namespace station
