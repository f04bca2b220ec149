#pragma once

#include <QComboBox>
#include <QTest>
#include <string>

#include "station/gui/main_window.h"

/// Writes what the desktop program shows into a folder: the main window in each form of its live
/// view, and the plug-in's two windows.
inline void savePictures(station::MainWindow& window, const std::string& folder) {
    auto* const mode = window.findChild<QComboBox*>("liveMode");
    const auto save = [&](QWidget& widget, const char* name) {
        widget.grab().save(QString::fromStdString(folder + "/" + name));
    };
    const char* const names[] = {"main_window.png", "all_messages.png", "modules_and_clocks.png"};
    for (int form = 0; form < 3; ++form) {
        mode->setCurrentIndex(form);
        QTest::qWait(500);
        save(window, names[form]);
    }
    save(window.getWorkspace().modulesWindow(), "modules_window.png");
    save(window.getWorkspace().channelsWindow(), "channels_window.png");
}
