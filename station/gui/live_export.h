#pragma once

#include <QWidget>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "station/gui/plot/file_job.h"
#include "station/view/live_feed.h"
#include "station/view/message_list.h"

namespace station {

/// Writes the messages that pass a filter into a recording, in the order of time, in the
/// background.
class LiveExport {
  public:
    /// Of those that the feed has now. Throws as `openRecording`; a file that is there is written
    /// over. The filter is asked on another thread.
    LiveExport(const LiveFeed& feed, LiveFilter filter, const std::string& path);
    bool isRunning() const { return job.isRunning(); }

    /// For the user: how far it is, or how it ended.
    std::string describe();

  private:
    struct Task {
        std::vector<LiveChannel> channels;
        std::vector<BusType> buses;
        std::int64_t now = 0;  ///< of the feed, UTC nanoseconds
        MessageStore messages;
        MessageList list;
        std::unique_ptr<Recording> recording;
        std::vector<std::size_t> handles;  ///< by channel; `noHandle` for those that it can't hold
        std::atomic<double> share{0.0};    ///< of it that is written
    };

    static QString write(Task& task, const std::atomic<bool>& isStopped);

    const std::string path;
    std::shared_ptr<Task> task;
    std::string result;  ///< empty while it runs
    FileJob job;
};

/// Opens a dialog, which goes by itself, for the name of such a file.
void askExportPath(QWidget* parent, std::function<void(const QString&)> next);

}  // namespace station
