#pragma once

#include <QWidget>

#include "station/toolkit/model/toolkit_window.h"

namespace station {

/// A place for a plug-in's window in the program's own: a widget that may stand anywhere, and the
/// window object to hand to the plug-in, which goes with it. Both may be deleted in a handler of
/// that window.
class QtWindow final : public QWidget {
  public:
    /// `onFailure` gets each failure of a handler, to tell the user; not when the widget has gone.
    explicit QtWindow(FailureSink onFailure, QWidget* parent = nullptr);
    ~QtWindow() override;

    ToolkitWindow& window() const { return *object; }

  private:
    class Object;

    void replaceContent(const WindowElement* content);

    CountedRef<ToolkitWindow> object;
    QWidget* shown = nullptr;
};

}  // namespace station
