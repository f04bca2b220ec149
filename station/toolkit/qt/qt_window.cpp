#include "station/toolkit/qt/qt_window.h"

#include <QPointer>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>

#include "station/toolkit/qt/window_builder.h"

namespace station {
namespace {

/// On a timer of Qt's. Ticks that the event loop has no time for are left out by Qt.
class QtTimer final : public ToolkitTimer {
  public:
    explicit QtTimer(FailureSinkPtr failureSink) : ToolkitTimer(std::move(failureSink)) {
        QObject::connect(timer, &QTimer::timeout, timer, [this] { raiseTick(); });
        restart();
    }

  private:
    /// Perhaps in its own tick.
    ~QtTimer() override {
        timer->stop();
        timer->disconnect();
        timer->deleteLater();
    }

    void restart() override {
        constexpr std::uint32_t longest = 1U << 30U;  // milliseconds, as Qt counts them
        timer->start(static_cast<int>(std::min(getInterval(), longest)));
    }

    QTimer* const timer = new QTimer;
};

}  // namespace

/// The window object; without a widget it is one that nobody sees.
class QtWindow::Object final : public ToolkitWindow {
  public:
    Object(QtWindow& ownWidget, FailureSinkPtr failureSink)
        : ToolkitWindow(std::move(failureSink)), widget(&ownWidget) {}

  private:
    void onContentChanged() override {
        if (widget) {
            widget->replaceContent(getContent());
        }
    }
    CountedRef<ToolkitTimer> makeTimer() override {
        return CountedRef<ToolkitTimer>::adopt(new QtTimer(sink));
    }

    const QPointer<QtWindow> widget;
};

QtWindow::QtWindow(FailureSink onFailure, QWidget* parent) : QWidget(parent) {
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    const QPointer<QtWindow> self(this);
    object = CountedRef<ToolkitWindow>::adopt(
        new Object(*this, std::make_shared<const FailureSink>(
                              [self, tell = std::move(onFailure)](const HandlerFailure& failure) {
                                  if (self && tell) {
                                      tell(failure);
                                  }
                              })));
}

QtWindow::~QtWindow() {
    object->close();
}

/// The old content may be what the user is just working in.
void QtWindow::replaceContent(const WindowElement* content) {
    if (shown != nullptr) {
        shown->hide();
        shown->deleteLater();
    }
    shown = content != nullptr ? buildWidget(*content) : nullptr;
    if (shown != nullptr) {
        layout()->addWidget(shown);
    }
}

}  // namespace station
