#pragma once

#include <QWidget>

#include "station/toolkit/model/window_content.h"

namespace station {

/// Makes the widgets of a window's content and what is in it. The controls have to outlive the
/// event loop's next turn only: widgets hold references to what they show.
QWidget* buildWidget(const WindowElement& content);

}  // namespace station
