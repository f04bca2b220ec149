#include "station/toolkit/qt/later.h"

#include <QCoreApplication>
#include <QEvent>

namespace station {
namespace {

class ActionEvent final : public QEvent {
  public:
    explicit ActionEvent(std::function<void()> toRun) : QEvent(User), action(std::move(toRun)) {}

    const std::function<void()> action;
};

}  // namespace

void Later::run(std::function<void()> action) {
    QCoreApplication::postEvent(this, new ActionEvent(std::move(action)));
}

bool Later::event(QEvent* event) {
    const auto* const due = dynamic_cast<const ActionEvent*>(event);
    if (due == nullptr) {
        return QObject::event(event);
    }
    due->action();
    return true;
}

}  // namespace station
