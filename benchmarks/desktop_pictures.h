#pragma once

#include <QComboBox>
#include <QTest>
#include <string>

#include "station/gui/main_window.h"

/// Writes what the desktop program shows into a folder: the main window with its table of channels,
/// and the plug-in's two windows.
inline void savePictures(station::MainWindow& window, const std::string& folder) {
    window.findChild<QComboBox*>("liveMode")->setCurrentIndex(0);
    QTest::qWait(500);
    const auto save = [&](QWidget& widget, const char* name) {
        widget.grab().save(QString::fromStdString(folder + "/" + name));
    };
    save(window, "main_window.png");
    save(window.getWorkspace().modulesWindow(), "modules_window.png");
    save(window.getWorkspace().channelsWindow(), "channels_window.png");
}
