#include "station/gui/measurement_bar.h"

#include <fmt/format.h>

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QRegularExpression>
#include <cmath>

#include "station/recording/recording.h"

namespace station {
namespace {

QString elapsedText(double seconds) {
    const auto tenths = static_cast<std::int64_t>(std::floor(std::max(seconds, 0.0) * 10.0));
    constexpr std::int64_t minute = 600;
    return QString::fromStdString(fmt::format("{:02}:{:02}:{:02}.{}", tenths / (60 * minute),
                                              tenths / minute % 60, tenths % minute / 10,
                                              tenths % 10));
}

QString sizeText(std::uint64_t bytes) {
    constexpr double kilo = 1000.0;
    const auto amount = static_cast<double>(bytes);
    return amount < kilo * kilo ? QString("%1 kB").arg(amount / kilo, 0, 'f', 1)
                                : QString("%1 MB").arg(amount / kilo / kilo, 0, 'f', 1);
}

void setColors(QLabel& label, const QColor& background, const QColor& text) {
    QPalette palette = label.palette();
    palette.setColor(QPalette::Window, background);
    palette.setColor(QPalette::WindowText, text);
    label.setPalette(palette);
    label.setAutoFillBackground(true);
}

/// The first of them, for there is little room.
QString gapsText(const std::vector<std::string>& gaps) {
    if (gaps.empty()) {
        return "Nothing lost";
    }
    constexpr int most = 60;
    QString text = QString::fromStdString(gaps.front());
    if (text.size() > most) {
        text = text.left(most) + "...";
    }
    return gaps.size() == 1 ? text : QString("%1 (and %2 more)").arg(text).arg(gaps.size() - 1);
}

}  // namespace

MeasurementBar::MeasurementBar(std::function<void(const QString&)> onStart,
                               std::function<void()> onStop)
    : start(new QPushButton("&Start")),
      stop(new QPushButton("S&top")),
      records(new QCheckBox("&Record to")),
      path(new QLineEdit(QDir::home().filePath("recording.pcapng"))),
      browse(new QPushButton("...")),
      elapsed(new QLabel),
      size(new QLabel),
      loss(new QLabel) {
    start->setObjectName("start");
    stop->setObjectName("stop");
    records->setObjectName("records");
    path->setObjectName("recordingPath");
    path->setToolTip(
        QString::fromStdString("Its ending names the format: " + describeRecordingFormats()));
    elapsed->setObjectName("elapsed");
    size->setObjectName("recordingSize");
    loss->setObjectName("loss");
    loss->setMargin(4);
    loss->setTextFormat(Qt::PlainText);
    for (QLabel* const label : {elapsed, loss}) {  // names in it don't widen the window
        label->setMinimumWidth(label->fontMetrics().horizontalAdvance("Nothing lost") + 8);
    }
    auto* const layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    for (QWidget* const widget : std::initializer_list<QWidget*>{start, stop, records}) {
        layout->addWidget(widget);
    }
    layout->addWidget(path, 1);
    for (QWidget* const widget : std::initializer_list<QWidget*>{browse, elapsed, size, loss}) {
        layout->addWidget(widget);
    }
    connect(start, &QPushButton::clicked, this, [this, onStart = std::move(onStart)] {
        onStart(records->isChecked() ? path->text() : QString());
    });
    connect(stop, &QPushButton::clicked, this, [onStop = std::move(onStop)] { onStop(); });
    connect(browse, &QPushButton::clicked, this, [this] { choosePath(); });
    proposeNextRecording();
    setState(State::Idle);
    show(Summary(), false, {});
}

void MeasurementBar::setState(State state) {
    const bool isIdle = state == State::Idle;
    start->setEnabled(isIdle);
    stop->setEnabled(state == State::Running);
    records->setEnabled(isIdle);
    path->setEnabled(isIdle);
    browse->setEnabled(isIdle);
}

void MeasurementBar::show(const Summary& summary, bool hasLost,
                          const std::vector<std::string>& gaps) {
    std::uint64_t bytes = 0;
    std::uint64_t lost = 0;
    bool hasFailed = false;
    for (const RecordingSummary& recording : summary.recordings) {
        bytes += recording.bytes;
        lost += recording.lost;
        hasFailed = hasFailed || !recording.error.empty();
    }
    elapsed->setText(
        summary.awaitedLeader.empty()
            ? elapsedText(summary.seconds)
            : QString("waiting for %1").arg(QString::fromStdString(summary.awaitedLeader)));
    size->setText(summary.recordings.empty() ? "not recorded" : sizeText(bytes));
    if (hasFailed || lost > 0) {
        loss->setText(QString("Recording failed, %1 messages not in it").arg(lost));
    } else {
        const std::uint64_t messages = summary.getTotalLost();
        loss->setText(!hasLost        ? gapsText(gaps)
                      : messages == 0 ? QString("Messages lost")
                                      : QString("%1 messages lost").arg(messages));
    }
    const bool isBad = hasLost || hasFailed || lost > 0;
    QStringList all;
    for (const std::string& gap : gaps) {
        all.append(QString::fromStdString(gap).toHtmlEscaped());
    }
    loss->setToolTip(all.join("<br>"));
    setColors(*loss,
              isBad          ? QColor(198, 40, 40)
              : gaps.empty() ? QColor(200, 230, 201)
                             : QColor(255, 193, 7),
              isBad ? Qt::white : Qt::black);
}

void MeasurementBar::choosePath() {
    QStringList filters;
    for (const RecordingFormat& format : getRecordingFormats()) {
        filters << QString("%1 (*%2)").arg(format.what, format.ending);
    }
    const QString chosen =
        QFileDialog::getSaveFileName(this, "Record to", path->text(), filters.join(";;"), nullptr,
                                     QFileDialog::DontConfirmOverwrite);
    if (!chosen.isEmpty()) {
        path->setText(chosen);
        records->setChecked(true);
    }
}

/// "drive.pcapng" is followed by "drive-2.pcapng".
void MeasurementBar::proposeNextRecording() {
    static const QRegularExpression numbered("^(.*)-([0-9]{1,6})$");
    while (QFileInfo::exists(path->text())) {
        const QFileInfo taken(path->text());
        const auto match = numbered.match(taken.completeBaseName());
        const QString stem = match.hasMatch() ? match.captured(1) : taken.completeBaseName();
        const int next = match.hasMatch() ? match.captured(2).toInt() + 1 : 2;
        path->setText(
            taken.dir().filePath(QString("%1-%2.%3").arg(stem).arg(next).arg(taken.suffix())));
    }
}

}  // namespace station
