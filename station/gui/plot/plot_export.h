#pragma once

#include <QByteArray>
#include <QString>
#include <functional>
#include <string>
#include <vector>

#include "station/gui/plot/file_job.h"
#include "station/gui/plot/signal_series.h"

namespace station {

/// Writes a file piece by piece, for a `FileJob`: `pieces` gives the next bytes, and none at its
/// end. The file gets its name when all is in it, so that one that was there stays until then.
FileJob::Work writingOf(const QString& path, std::function<QByteArray()> pieces);

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
