#include "station/toolkit/qt/qt_window.h"

#include <QGroupBox>
#include <QPainter>
#include <QPointer>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "station/toolkit/qt/grid_panel.h"
#include "station/toolkit/qt/grid_view.h"

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

using Kind = WindowElement::Kind;

constexpr const char* addIcon = "ADD";
constexpr const char* removeIcon = "REMOVE";

/// Null for an icon without a picture.
QIcon iconOf(const std::string& name) {
    constexpr int size = 32;
    constexpr int border = 6;
    constexpr int thickness = 6;
    if (name != addIcon && name != removeIcon) {
        return {};
    }
    QPixmap picture(size, size);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.setPen(QPen(name == addIcon ? QColor(0, 128, 0) : QColor(192, 0, 0), thickness));
    painter.drawLine(border, size / 2, size - border, size / 2);
    if (name == addIcon) {
        painter.drawLine(size / 2, border, size / 2, size - border);
    }
    return picture;
}

/// The first button with that icon; null if there is none.
CountedRef<IconButton> findButton(const WindowElement& element, const char* icon) {
    CountedRef<IconButton> found = element.iconName == icon ? element.button : nullptr;
    for (auto child = element.children.begin(); !found && child != element.children.end();
         ++child) {
        found = findButton(*child, icon);
    }
    return found;
}

QWidget* makeButton(const WindowElement& element) {
    const QString name = QString::fromStdString(element.iconName);
    const QIcon icon = iconOf(element.iconName);
    auto* const widget = new QToolButton;
    widget->setFocusPolicy(Qt::StrongFocus);
    widget->setAccessibleName(name);
    widget->setWhatsThis(name.left(1) + name.mid(1).toLower());
    widget->setToolTip(widget->whatsThis());
    if (icon.isNull()) {
        widget->setText(name);
    } else {
        widget->setIcon(icon);
    }
    // From the event loop, so that the button may go in its own handler.
    QObject::connect(
        widget, &QToolButton::clicked, widget,
        [button = element.button, widget] {
            if (widget->isEnabled()) {  // still
                CountedRef<IconButton>(button)->press();
            }
        },
        Qt::QueuedConnection);
    return widget;
}

/// Delete presses the window's button for removing.
QWidget* makeGrid(const WindowElement& element, const CountedRef<IconButton>& removeButton) {
    auto* const view = new GridView(element.grid);
    if (removeButton) {
        view->setOnDelete([removeButton] { removeButton->press(); });
    }
    return view;
}

QWidget* makeFrame(const WindowElement& element) {
    QWidget* const frame = element.kind == Kind::CaptionPanel
                               ? new QGroupBox(QString::fromStdString(element.title))
                               : new QWidget;
    auto* const layout = new QVBoxLayout(frame);
    layout->setContentsMargins(0, 0, 0, 0);
    const QColor color(QString::fromStdString(element.background));
    if (color == Qt::white) {  // that of paper, also where the user has it dark
        frame->setBackgroundRole(QPalette::Base);
    } else if (color.isValid()) {
        QPalette palette = frame->palette();
        palette.setColor(QPalette::Window, color);
        frame->setPalette(palette);
    }
    frame->setAutoFillBackground(color.isValid());
    return frame;
}

/// The controls have to outlive the event loop's next turn only: widgets hold references to what
/// they show.
QWidget* build(const WindowElement& element, const CountedRef<IconButton>& removeButton) {
    GridPanel* panel = nullptr;
    QWidget* widget = nullptr;
    switch (element.kind) {
        case Kind::IconButton:
            widget = makeButton(element);
            break;
        case Kind::DrawGrid:
            widget = makeGrid(element, removeButton);
            break;
        case Kind::Grid:
            widget = panel = new GridPanel(element.rows, element.columns);
            break;
        default:
            widget = makeFrame(element);
    }
    widget->setObjectName(QString::fromStdString(element.name));
    for (const WindowElement& child : element.children) {
        QWidget* const inside = build(child, removeButton);
        if (panel != nullptr) {
            panel->add(inside, child);
        } else {
            widget->layout()->addWidget(inside);
        }
    }
    return widget;
}

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
                              [self, report = std::move(onFailure)](const HandlerFailure& failure) {
                                  if (self && report) {
                                      report(failure);
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
    shown = nullptr;
    if (content != nullptr) {
        shown = build(*content, findButton(*content, removeIcon));
        layout()->addWidget(shown);
        applyLock();
    }
}

void QtWindow::setLocked(const QString& reason) {
    if (std::exchange(lockReason, reason) != reason) {
        applyLock();
    }
}

void QtWindow::applyLock() {
    if (shown == nullptr) {
        return;
    }
    const bool isFree = lockReason.isEmpty();
    for (auto* const button : shown->findChildren<QToolButton*>()) {
        button->setEnabled(isFree);
        button->setToolTip(isFree ? button->whatsThis() : lockReason);
    }
    for (auto* const table : shown->findChildren<QTableView*>()) {
        if (auto* const view = dynamic_cast<GridView*>(table)) {
            view->setLocked(!isFree);
        }
    }
}

}  // namespace station
