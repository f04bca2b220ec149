#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include "station/gui/live_panel.h"
#include "station/recording/bus_record.h"

namespace live_panel_rig {

using namespace station;
using testing::ElementsAre;
using testing::HasSubstr;

/// The panel with a user, and a measurement of two channels.
class LivePanelTest : public testing::Test {
  protected:
    static constexpr std::int64_t startUtc = 1'700'000'000'000'000'000;

    LivePanelTest() {
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folder.path());
        QCoreApplication::setOrganizationName("cmp-station-test");
        summary.startTime = Summary::Clock::time_point(std::chrono::nanoseconds(startUtc));
        summary.seconds = 2.5;
        summary.channels.resize(2);
        summary.channels[0].name = "Front";
        summary.channels[0].busName = "CAN FD";
        summary.channels[1].name = "Door";
        summary.channels[1].busName = "LIN";
        summary.channels[1].bus = BusType::Lin;
        feed.begin(summary);
        panel.resize(1000, 300);
        panel.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&panel));
    }

    void can(std::uint32_t id, std::uint8_t first = 0xAB, std::int64_t nanoseconds = 0,
             std::uint8_t length = 2) {
        std::array<std::uint8_t, CanRecord::size> record = {};
        std::memcpy(record.data(), &id, sizeof id);
        record[7] = length;
        record[8] = first;
        feed.onMessage(0, startUtc + nanoseconds, record.data(), record.size());
    }
    void lin(std::uint8_t id) {
        const std::array<std::uint8_t, LinRecord::size> record = {id, 1, 0, 0, 0x0F};
        feed.onMessage(1, startUtc, record.data(), record.size());
    }
    template <typename Widget>
    Widget& get(const char* name) {
        return *panel.findChild<Widget*>(name);
    }
    static std::string text(const QModelIndex& index) {
        return index.data().toString().toStdString();
    }
    /// What the tree shows: channels and identifiers with that column.
    std::string shown(int column = IdentifierModel::Messages) {
        const QAbstractItemModel& model = *tree.model();
        std::string texts;
        for (int channel = 0; channel < model.rowCount(); ++channel) {
            const QModelIndex parent = model.index(channel, 0);
            texts += text(parent) + " " + text(parent.siblingAtColumn(column)) + ":";
            for (int row = 0; row < model.rowCount(parent); ++row) {
                texts += " " + text(model.index(row, 0, parent)) + "=" +
                         text(model.index(row, column, parent));
            }
            texts += "|";
        }
        return texts;
    }
    bool waitFor(const std::string& wanted) {
        return QTest::qWaitFor([&] { return shown() == wanted; });
    }
    std::vector<std::string> rows() {
        std::vector<std::string> texts;
        for (int row = 0; row < list.model()->rowCount(); ++row) {
            std::string line;
            for (int column = 0; column < list.model()->columnCount(); ++column) {
                line += (column > 0 ? "," : "") + text(list.model()->index(row, column));
            }
            texts.push_back(line);
        }
        return texts;
    }
    bool waitForRows(int count) {
        return QTest::qWaitFor([&] { return list.model()->rowCount() == count; });
    }

    QTemporaryDir folder;
    Summary summary;
    LiveFeed feed;
    LivePanel panel{feed};
    QComboBox& mode = get<QComboBox>("liveMode");
    QComboBox& times = get<QComboBox>("liveTimes");
    QPushButton& pause = get<QPushButton>("livePause");
    QLineEdit& filter = get<QLineEdit>("liveFilter");
    QLineEdit& search = get<QLineEdit>("liveFind");
    QTreeView& tree = get<QTreeView>("liveIdentifiers");
    RowView& list = get<RowView>("liveMessages");
};

}  // namespace live_panel_rig
