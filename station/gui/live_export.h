#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "station/gui/plot/file_job.h"
#include "station/view/live_feed.h"
#include "station/view/message_list.h"

namespace station {

/// Writes shown messages into a recording, in the background.
class LiveExport {
  public:
    /// In the order of the list. Throws as `openRecording`; a file that is there is written over.
    LiveExport(const LiveFeed& picture, MessageList rows, const std::string& path);

    /// For the user: how far it is, or how it ended.
    std::string describe();

  private:
    struct Task {
        std::vector<LiveChannel> channels;
        MessageStore messages;
        MessageList list;
        std::unique_ptr<Recording> recording;
        std::vector<std::size_t> handles;  ///< by channel; `noHandle` for those that it can't hold
        std::atomic<std::size_t> row{0};
    };

    static QString write(Task& task, const std::atomic<bool>& isStopped);

    const std::string path;
    std::shared_ptr<Task> task;
    std::string result;  ///< empty while it runs
    FileJob job;
};

}  // namespace station
