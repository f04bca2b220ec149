#pragma once

#include <QString>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

namespace station {

/// Writes or reads files on a thread of its own, one job at a time: a disk that doesn't answer must
/// not hold up the event loop. At the end of the program such a disk isn't waited for long.
class FileJob {
  public:
    /// Called on the thread. Ends early once it is stopped. Returns an empty text for a good end,
    /// otherwise the reason. What it uses stays as long as it runs, which may be longer than the
    /// program's windows.
    using Work = std::function<QString(const std::atomic<bool>& isStopped)>;

    FileJob() = default;
    ~FileJob();

    FileJob(const FileJob&) = delete;
    FileJob& operator=(const FileJob&) = delete;

    /// Only while none runs.
    void start(Work work);
    bool isRunning() const { return thread.joinable(); }
    /// What became of it, once. Nothing while it is under way.
    std::optional<QString> takeResult();

  private:
    struct State {
        std::atomic<bool> isStopped = false;
        std::atomic<bool> isDone = false;
        QString result;  ///< valid when it is done
    };

    std::shared_ptr<State> state;
    std::thread thread;
};

}  // namespace station
