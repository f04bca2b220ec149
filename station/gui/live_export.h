#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "station/view/live_feed.h"
#include "station/view/message_list.h"

namespace station {

/// Writes shown messages into a recording, on a thread of its own.
class LiveExport {
  public:
    /// In the order of the list. Throws as `openRecording`; a file that is there is written over.
    LiveExport(const LiveFeed& picture, MessageList rows, const std::string& path);
    /// Leaves what isn't written.
    ~LiveExport();

    bool isOver() const { return over.load(); }
    /// For the user: how far it is, or how it ended.
    std::string describe() const;

  private:
    void write(const std::stop_token& stop);

    const std::vector<LiveChannel> channels;
    const MessageStore messages;
    const MessageList list;
    const std::string path;
    std::unique_ptr<Recording> recording;
    std::vector<std::size_t> handles;  ///< by channel; `noHandle` for those that it can't hold
    std::atomic<std::size_t> row{0};
    std::size_t leftOut = 0;  ///< messages; once it is over
    std::string failure;      ///< once it is over
    std::atomic<bool> over{false};
    std::jthread writer;
};

}  // namespace station
