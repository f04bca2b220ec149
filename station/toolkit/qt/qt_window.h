#pragma once

#include <QString>
#include <QWidget>

#include "station/toolkit/model/toolkit_window.h"

namespace station {

/// A place for a plug-in's window in the program's own: a widget that may stand anywhere, and the
/// window object to hand to the plug-in, which goes with it. Both may be deleted in a handler of
/// that window.
class QtWindow final : public QWidget {
  public:
    /// `onFailure` gets each failure of a handler, for the user; not when the widget has gone.
    explicit QtWindow(FailureSink onFailure, QWidget* parent = nullptr);
    ~QtWindow() override;

    /// From now on the user can look at the window, fold, select, and change names and colours, but
    /// nothing else; buttons give that text as the reason. Empty: all is free again.
    void setLocked(const QString& reason);

    ToolkitWindow& window() const { return *object; }

  private:
    class Object;

    void replaceContent(const WindowElement* content);
    void applyLock();

    CountedRef<ToolkitWindow> object;
    QWidget* shown = nullptr;
    QString lockReason;
};

}  // namespace station
