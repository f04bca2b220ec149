#pragma once

#include <QApplication>
#include <QComboBox>
#include <QTest>
#include <QTreeView>
#include <string>

#include "station/gui/main_window.h"

/// A palette that is dark everywhere.
inline QPalette makeDarkPalette() {
    const QColor window(45, 45, 48);
    const QColor base(30, 30, 30);
    QPalette palette(Qt::white, window, Qt::gray, Qt::black, Qt::darkGray, Qt::white, base);
    palette.setColor(QPalette::WindowText, Qt::white);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::ButtonText, Qt::white);
    palette.setColor(QPalette::Highlight, QColor(38, 119, 196));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::PlaceholderText, Qt::gray);
    for (const auto role : {QPalette::WindowText, QPalette::ButtonText, QPalette::Text}) {
        palette.setColor(QPalette::Disabled, role, Qt::darkGray);
    }
    return palette;
}

/// Puts the last signal of each of the first messages that have any into the plot, up to so many.
inline void plotSignals(QTreeView& tree, int most) {
    const QAbstractItemModel& model = *tree.model();
    int plots = 0;
    for (int place = 0; place < model.rowCount(); ++place) {
        const QModelIndex channel = model.index(place, 0);
        for (int row = 0; row < model.rowCount(channel) && plots < most; ++row) {
            const QModelIndex message = model.index(row, 0, channel);
            if (model.rowCount(message) > 0) {
                tree.expand(message);
                Q_EMIT tree.activated(model.index(model.rowCount(message) - 1, 0, message));
                ++plots;
            }
        }
    }
}

/// Writes what the desktop program shows into a folder: the main window in each form of its live
/// view, with signals, in a dark palette and small, and the plug-in's two windows.
inline void savePictures(station::MainWindow& window, const std::string& folder) {
    auto* const mode = window.findChild<QComboBox*>("liveMode");
    const auto save = [&](QWidget& widget, const char* name) {
        QTest::qWait(700);
        widget.grab().save(QString::fromStdString(folder + "/" + name));
    };
    const char* const names[] = {"main_window.png", "all_messages.png", "modules_and_clocks.png"};
    for (int form = 0; form < 3; ++form) {
        mode->setCurrentIndex(form);
        save(window, names[form]);
    }
    save(window.getWorkspace().getModulesWindow(), "modules_window.png");
    save(window.getWorkspace().getChannelsWindow(), "channels_window.png");
    mode->setCurrentIndex(0);
    plotSignals(*window.findChild<QTreeView*>("liveIdentifiers"), 3);
    QTest::qWait(3000);  // some values more
    save(window, "signals.png");
    const QPalette light = QApplication::palette();
    QApplication::setPalette(makeDarkPalette());
    save(window, "dark.png");
    QApplication::setPalette(light);
    window.resize(800, 600);
    save(window, "small.png");
}
