#pragma once

#include <QColor>
#include <QTimer>
#include <QWidget>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "station/gui/plot/plot_export.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QToolButton;

namespace station {

class PlotTable;
class PlotView;
struct PlotSignal;

/// Signals over time, with what the user does to look at them: he drops them here, follows the
/// newest values or goes back in time, measures with two cursors, and exports what he sees. A value
/// that comes in costs its place in memory; what is to be seen is drawn five times a second.
///
/// Called on the thread of the windows.
class PlotPanel final : public QWidget {
  public:
    /// Of what can be dropped: the bytes are a key of whoever is behind `setOnDrop`.
    static constexpr const char* mimeType = "application/x-cmp-signal";
    static constexpr std::size_t defaultMemory = std::size_t{512} << 20U;

    /// So many bytes are for the values of all signals together; each gets the same share, a
    /// megabyte at least.
    explicit PlotPanel(std::size_t memoryForValues = defaultMemory);
    ~PlotPanel() override;

    /// A color that isn't valid stands for the next one of a list. The number is the signal's own
    /// as long as the panel lives.
    std::size_t addSignal(const QString& name, const QString& unit, QColor color = {});
    /// Nothing for one that isn't there any more.
    void removeSignal(std::size_t number);
    /// In order of time for each signal; a value that comes late is counted instead. Nothing for a
    /// signal that isn't there any more.
    void append(std::size_t number, std::int64_t utcNanoseconds, double value);
    /// Forgets the values, the start and the cursors, and keeps the signals.
    void clear();
    /// Times are shown since then: since the first value, if it isn't called.
    void setStart(std::int64_t utcNanoseconds);
    /// Holds the picture, which can be moved and zoomed all the same. What comes in is kept.
    void setPaused(bool isPaused);

    void setOnDrop(std::function<void(const QByteArray& key)> call) { onDrop = std::move(call); }
    /// The user has removed that signal.
    void setOnRemove(std::function<void(std::size_t)> call) { onRemove = std::move(call); }

    /// Begin to write what is to be seen: the picture, or the points. The panel says what became
    /// of it. One at a time; false for another one.
    bool exportPng(const QString& path);
    bool exportCsv(const QString& path);

  protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void changeEvent(QEvent* event) override;

  private:
    QWidget* makeBar();
    void askPath(const QString& title, const QString& name,
                 std::function<void(const QString&)> next);
    void shareMemory();
    /// The signals are others: the table has a row for each.
    void rebuild();
    void tick();
    void draw();
    void showControls();
    void showCursors();
    void showNotice();
    void toggleCursors(bool isOn);
    void showMenu(std::size_t number, QPoint position);
    void removeByUser(std::size_t number);
    bool isThere(std::size_t number) const;

    const std::size_t memory;
    std::vector<std::unique_ptr<PlotSignal>> plotSignals;  ///< null for removed ones
    std::function<void(const QByteArray& key)> onDrop;
    std::function<void(std::size_t)> onRemove;
    PlotView* const view;
    PlotTable* const table;
    QComboBox* const width;
    QPushButton* const followNewest;
    QPushButton* const pause;
    QCheckBox* const autoscale;
    QPushButton* const cursorsButton;
    QToolButton* const exportButton;
    QLabel* const cursorText;
    QLabel* const notice;
    FileJob file;
    QString exportNotice;    ///< what became of the last one
    QString whatIsExported;  ///< to be said when it is done
    bool hasStart = false;
    bool hasChanged = false;
    std::uint64_t impossible = 0;  ///< values with a time before 1970 or after 2100
    QTimer timer;
};

}  // namespace station
