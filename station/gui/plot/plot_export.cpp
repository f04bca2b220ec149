#include "station/gui/plot/plot_export.h"

#include <fmt/format.h>

#include <QSaveFile>
#include <chrono>
#include <iterator>

#include "core/csv_field.h"

namespace station {
namespace {

constexpr std::int64_t second = 1'000'000'000;

/// "2023-11-14T22:13:20.123456789Z"
void putUtc(std::string& text, std::int64_t utc) {
    const std::chrono::sys_time<std::chrono::nanoseconds> time{std::chrono::nanoseconds(utc)};
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::int64_t inDay = (time - day).count();
    fmt::format_to(std::back_inserter(text), "{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:09}Z",
                   static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                   static_cast<unsigned>(date.day()), inDay / second / 3600,
                   inDay / second / 60 % 60, inDay / second % 60, inDay % second);
}

/// Exact, unlike a double.
void putSeconds(std::string& text, std::int64_t nanoseconds) {
    const auto size = static_cast<std::uint64_t>(nanoseconds < 0 ? -nanoseconds : nanoseconds);
    fmt::format_to(std::back_inserter(text), "{}{}.{:09}", nanoseconds < 0 ? "-" : "",
                   size / second, size % second);
}

}  // namespace

FileJob::Work writingOf(const QString& path, std::function<QByteArray()> pieces) {
    return [path, pieces = std::move(pieces)](const std::atomic<bool>& isStopped) {
        QSaveFile file(path);
        bool isGood = file.open(QIODevice::WriteOnly);
        while (isGood && !isStopped) {
            const QByteArray piece = pieces();
            if (piece.isEmpty()) {
                break;
            }
            isGood = file.write(piece) == piece.size();
        }
        if (isStopped) {
            file.cancelWriting();
            return QString("it was stopped");
        }
        return isGood && file.commit() ? QString() : file.errorString();
    };
}

CsvPieces::CsvPieces(std::vector<Signal> signalsOfFile, SignalSeries::Range timesOfFile,
                     std::int64_t utcOfStart)
    : parts(std::move(signalsOfFile)), range(timesOfFile), start(utcOfStart) {
    for (Signal& part : parts) {
        part.name = quotedForCsv(part.name);
        part.unit = quotedForCsv(part.unit);
    }
}

QByteArray CsvPieces::next() {
    std::string text;
    if (!std::exchange(hasHeader, true)) {
        text = "time,seconds,signal,unit,value\n";
    }
    while (text.empty() && signal < parts.size()) {
        const Signal& part = parts[signal];
        if (chunk == part.points.size()) {
            ++signal;
            chunk = 0;
            continue;
        }
        for (const SignalPoint& point : *part.points[chunk]) {
            if (point.utc >= range.from && point.utc < range.to) {
                putUtc(text, point.utc);
                text += ',';
                putSeconds(text, point.utc - start);
                fmt::format_to(std::back_inserter(text), ",{},{},{}\n", part.name, part.unit,
                               point.value);
            }
        }
        ++chunk;
    }
    return QByteArray::fromStdString(text);
}

}  // namespace station
