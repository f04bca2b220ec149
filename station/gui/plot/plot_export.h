#pragma once

#include <QByteArray>
#include <QString>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "station/gui/plot/signal_series.h"

namespace station {

/// Writes a file on a thread of its own, one at a time: a disk that takes nothing must not hold up
/// the event loop. The file gets its name when all is in it, so that one that was there stays until
/// then. At the end of the program a disk that takes nothing isn't waited for long.
class PlotExport {
  public:
    /// The next bytes of a file; empty at its end. Called on the thread that writes.
    using Pieces = std::function<QByteArray()>;

    PlotExport() = default;
    ~PlotExport();

    PlotExport(const PlotExport&) = delete;
    PlotExport& operator=(const PlotExport&) = delete;

    /// Only while none runs.
    void start(const QString& path, Pieces pieces);
    bool isRunning() const { return thread.joinable(); }
    /// What became of the file, once: empty text for a good end, otherwise the reason. Nothing
    /// while it is being written.
    std::optional<QString> takeResult();

  private:
    struct State {
        std::atomic<bool> isStopped = false;
        std::atomic<bool> isDone = false;
        QString error;  ///< valid when it is done
    };

    std::shared_ptr<State> state;
    std::thread thread;
};

/// The points of some signals in a range of time, as text: a line for each point, signal by signal.
class CsvPieces {
  public:
    struct Signal {
        std::string name;
        std::string unit;
        SignalSeries::Snapshot points;
    };

    /// Times are UTC in nanoseconds; those of the text are also in seconds since `utcOfStart`.
    CsvPieces(std::vector<Signal> signalsOfFile, SignalSeries::Range timesOfFile,
              std::int64_t utcOfStart);
    /// About a chunk of points; empty after the last one.
    QByteArray next();

  private:
    std::vector<Signal> parts;
    SignalSeries::Range range;
    std::int64_t start;
    std::size_t signal = 0;
    std::size_t chunk = 0;
    bool hasHeader = false;
};

}  // namespace station
