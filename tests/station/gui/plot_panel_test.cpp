#include "station/gui/plot/plot_panel.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDropEvent>
#include <QLabel>
#include <QMimeData>
#include <QPushButton>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <cmath>

namespace {

using namespace station;
using testing::ElementsAre;

bool isRed(const QColor& color) {
    return color.red() - color.blue() > 80;
}
bool isBlue(const QColor& color) {
    return color.blue() - color.red() > 80;
}

class PlotPanelTest : public testing::Test {
  protected:
    static constexpr std::int64_t second = 1'000'000'000;
    static constexpr std::int64_t start = 1'700'000'000 * second;  // 22:13:20

    PlotPanelTest() {
        panel.resize(700, 500);
        panel.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&panel));
        view().setFocus();
    }
    QWidget& view() { return *panel.findChild<QWidget*>("plotView"); }
    template <typename Widget>
    Widget& get(const char* name) {
        return *panel.findChild<Widget*>(name);
    }
    /// Of the table: signal, unit, A, B, B - A, Min, Max.
    std::string cell(int row, int column) { return table.item(row, column)->text().toStdString(); }
    bool waitForMax(int row, const std::string& text) {
        return QTest::qWaitFor([&] { return cell(row, 6) == text; });
    }
    /// A value a second that is the second's number.
    void ramp(std::size_t signal, int from, int to) {
        for (int i = from; i <= to; ++i) {
            panel.append(signal, start + i * second, i);
        }
    }
    void wheel(QPoint at, int steps, Qt::KeyboardModifiers modifiers = {}) {
        QWheelEvent event(at, view().mapToGlobal(at), {}, {0, 120 * steps}, Qt::NoButton, modifiers,
                          Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(&view(), &event);
    }
    void drag(QPoint from, QPoint to) {
        QTest::mousePress(&view(), Qt::LeftButton, {}, from);
        QTest::mouseMove(&view(), to);
        QTest::mouseRelease(&view(), Qt::LeftButton, {}, to);
    }
    /// Seconds at a cursor, as the line above the table has them.
    double seconds(const QString& cursor) {
        const QString text = get<QLabel>("plotCursors").text();
        return text.section(cursor + ": ", 1, 1).section(' ', 0, 0).toDouble();
    }
    /// Chosen in the signal's menu by its letter.
    void choose(int row, Qt::Key letter) {
        table.setCurrentCell(row, 0);
        QTest::keyClick(&table, Qt::Key_Menu);
        QTest::keyClick(QApplication::activePopupWidget(), letter);
    }
    /// In how many rows of pixels there is such a color; not of the axes.
    int height(const std::function<bool(const QColor&)>& isSuch) {
        const QImage image = view().grab().toImage();
        int count = 0;
        for (int y = 0; y < image.height(); ++y) {
            bool hasColor = false;
            for (int x = image.width() / 3; x < image.width() * 2 / 3; ++x) {
                hasColor |= isSuch(image.pixelColor(x, y));
            }
            count += hasColor ? 1 : 0;
        }
        return count;
    }
    std::string exported(const char* name, bool (PlotPanel::*write)(const QString&)) {
        const QString path = folder.filePath(name);
        EXPECT_TRUE((panel.*write)(path));
        EXPECT_FALSE((panel.*write)(path)) << "one at a time";
        EXPECT_TRUE(QTest::qWaitFor([&] { return notice.text().contains(path); }, 30000));
        return (std::stringstream() << std::ifstream(path.toStdString()).rdbuf()).str();
    }

    QTemporaryDir folder;
    PlotPanel panel{std::size_t{1} << 20U};
    QTableWidget& table = get<QTableWidget>("plotTable");
    QLabel& notice = get<QLabel>("plotNotice");
    QPushButton& follow = get<QPushButton>("plotFollow");
    const QPoint middle = {350, 100};
};

TEST_F(PlotPanelTest, TheNewestIsShownUntilTheUserLooksElsewhereAndAgainOnRequest) {
    EXPECT_TRUE(notice.text().contains("Drag a signal"));
    const std::size_t speed = panel.addSignal("Speed", "km/h");
    ramp(speed, 0, 100);
    ASSERT_TRUE(waitForMax(0, "100"));
    EXPECT_EQ(cell(0, 5), "91") << "10 s";
    wheel(middle, 4);
    EXPECT_FALSE(follow.isChecked());
    const std::string least = cell(0, 5);
    EXPECT_GT(std::stod(least), 92);
    ramp(speed, 101, 200);
    QTest::qWait(500);  // it would be drawn
    EXPECT_EQ(cell(0, 5), least);
    drag(middle, middle + QPoint(200, 0));
    EXPECT_LT(std::stod(cell(0, 5)), std::stod(least));
    QTest::mouseDClick(&view(), Qt::LeftButton, {}, middle);
    EXPECT_EQ(cell(0, 6), "200");
    QTest::keyClick(&view(), Qt::Key_Left);
    EXPECT_EQ(cell(0, 6), "199");
    QTest::mouseClick(&follow, Qt::LeftButton);
    EXPECT_EQ(cell(0, 6), "200");
    QTest::keyClicks(&get<QComboBox>("plotWidth"), "A");
    QTest::keyClick(&get<QComboBox>("plotWidth"), Qt::Key_Return);
    get<QComboBox>("plotWidth").activated(3);
    EXPECT_EQ(cell(0, 5), "0");
    panel.setPaused(true);
    panel.append(speed, start + 201 * second, 1000);
    QTest::keyClick(&view(), Qt::Key_Home);
    wheel(middle, -1);
    EXPECT_EQ(cell(0, 6), "200") << "held";
    panel.append(speed, start, 5);
    QTest::mouseClick(&get<QPushButton>("plotPause"), Qt::LeftButton);
    EXPECT_EQ(cell(0, 6), "1000");
    EXPECT_TRUE(notice.text().contains("1 values"));
    panel.clear();
    EXPECT_EQ(cell(0, 6), "");
}

TEST_F(PlotPanelTest, CursorsTellTimesValuesAndDifferences) {
    const std::size_t one = panel.addSignal("One", "V");
    const std::size_t other = panel.addSignal("Other", "V");
    panel.setStart(start);
    for (int i = 0; i <= 10; ++i) {
        panel.append(one, start + i * second, i * i);
    }
    panel.append(other, start + 8 * second, std::nan(""));
    ASSERT_TRUE(waitForMax(0, "100"));
    QTest::mouseClick(&view(), Qt::LeftButton, {}, middle);
    QTest::mouseClick(&view(), Qt::LeftButton, Qt::ShiftModifier, middle + QPoint(240, 0));
    const double a = seconds("A");
    const double b = seconds("B");
    EXPECT_GT(a, 3);
    EXPECT_GT(b, a + 1);
    EXPECT_LT(b, 10);
    EXPECT_NEAR(seconds("B − A"), b - a, 2e-6);
    EXPECT_NEAR(seconds("1/(B − A)"), 1 / (b - a), 1e-4);
    const auto text = [](double value) { return QString::number(value).toStdString(); };
    const double atA = std::pow(std::floor(a), 2);
    const double atB = std::pow(std::floor(b), 2);
    EXPECT_EQ(cell(0, 2), text(atA));
    EXPECT_EQ(cell(0, 3), text(atB));
    EXPECT_EQ(cell(0, 4), text(atB - atA));
    EXPECT_EQ(cell(0, 5), text(std::pow(std::ceil(a), 2)));
    EXPECT_EQ(cell(0, 6), text(atB));
    EXPECT_EQ(cell(1, 3), "no number");
    EXPECT_EQ(cell(1, 4), "");
    drag(middle, middle + QPoint(-100, 0));
    EXPECT_LT(seconds("A"), a - 0.5);
    EXPECT_TRUE(follow.isChecked()) << "the cursor has moved, not the picture";
    const double moved = seconds("B");
    QTest::keyClick(&view(), Qt::Key_Right, Qt::ShiftModifier);
    EXPECT_GT(seconds("B"), moved);
    QTest::mouseClick(&view(), Qt::LeftButton, {}, middle);
    QTest::mouseDClick(&view(), Qt::LeftButton, {}, middle);
    EXPECT_LT(seconds("A"), a - 0.5) << "a double click sets none";
    QTest::mouseClick(&get<QPushButton>("plotCursorsButton"), Qt::LeftButton);
    EXPECT_EQ(cell(0, 2), "");
}

TEST_F(PlotPanelTest, ADroppedSignalIsHandedOnAndOtherThingsArent) {
    std::string dropped;
    QMimeData data;
    const auto drop = [&] {
        QDragEnterEvent enter(middle, Qt::CopyAction, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(&panel, &enter);
        if (enter.isAccepted()) {
            QDropEvent event(middle, Qt::CopyAction, &data, Qt::LeftButton, {});
            QCoreApplication::sendEvent(&panel, &event);
        }
        return enter.isAccepted();
    };
    data.setData(PlotPanel::mimeType, "1/2/3");
    EXPECT_FALSE(drop());
    panel.setOnDrop([&](const QByteArray& key) { dropped += key.toStdString(); });
    EXPECT_TRUE(drop());
    data.clear();
    data.setText("1/2/3");
    EXPECT_FALSE(drop());
    EXPECT_EQ(dropped, "1/2/3");
}

TEST_F(PlotPanelTest, WhatIsExportedIsWhatIsShown) {
    const std::size_t one = panel.addSignal("One, \"two\"", "°C, \"K\"");
    panel.append(one, start - 20 * second, 7);
    panel.setStart(start);
    panel.append(one, start - second / 2, 0.1);
    panel.append(one, start + 1, -1e300);
    panel.setPaused(true);
    panel.append(one, start + 2, 0.2);
    EXPECT_EQ(cell(0, 6), "0.1");
    const std::string name = ",\"One, \"\"two\"\"\",\"°C, \"\"K\"\"\",";
    EXPECT_EQ(exported("values.csv", &PlotPanel::exportCsv),
              "time,seconds,signal,unit,value\n"
              "2023-11-14T22:13:19.500000000Z,-0.500000000" +
                  name +
                  "0.1\n"
                  "2023-11-14T22:13:20.000000001Z,0.000000001" +
                  name + "-1e+300\n");
    exported("plot.png", &PlotPanel::exportPng);
    EXPECT_EQ(QImage(folder.filePath("plot.png")).size(), view().size() * 2);
    ASSERT_TRUE(panel.exportCsv("/nowhere/values.csv"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return notice.text().contains("failed"); }));
    panel.setPaused(false);

    for (std::int64_t i = 1; i <= 50'000; ++i) {
        panel.append(one, start + i * 1'000'000, 1);
    }
    get<QComboBox>("plotWidth").activated(3);
    const std::string text = exported("values.csv", &PlotPanel::exportCsv);
    EXPECT_TRUE(notice.text().contains("\"two\" before ")) << "only extents are left";
    EXPECT_GT(std::count(text.begin(), text.end(), '\n'), 20'000);
    panel.addSignal("Three", "V");
    EXPECT_LT(exported("shared.csv", &PlotPanel::exportCsv).size(), text.size())
        << "they share the memory";
}

TEST_F(PlotPanelTest, SignalsAreDrawnSoThatTheyCanBeSeenInALightAndADarkPalette) {
    for (const QColor background : {QColor(Qt::white), QColor(20, 20, 20)}) {
        QPalette palette;
        palette.setColor(QPalette::Base, background);
        panel.setPalette(palette);
        const std::size_t red = panel.addSignal("Red", "V", Qt::red);
        const std::size_t alike = panel.addSignal("Alike", "V", background);
        ramp(red, 0, 10);
        panel.append(alike, start, 4);
        panel.append(alike, start + 10 * second, 4);
        ASSERT_TRUE(waitForMax(0, "10"));
        EXPECT_GT(height([&](const QColor& color) { return color == background; }), 200);
        EXPECT_GT(height(isRed), 50);
        const auto swatch = table.item(1, 0)->data(Qt::DecorationRole).value<QColor>();
        EXPECT_GT(std::abs(swatch.lightness() - background.lightness()), 60);
        const QImage with = view().grab().toImage();
        panel.removeSignal(alike);
        const QImage without = view().grab().toImage();
        int most = 0;
        for (QPoint at(with.width() / 2, 0); at.y() < with.height(); at += QPoint(0, 1)) {
            const int before = with.pixelColor(at).lightness();
            most = std::max(most, std::abs(before - without.pixelColor(at).lightness()));
        }
        EXPECT_GT(most, 20);
        panel.removeSignal(red);
        EXPECT_EQ(height(isRed), 0);
        panel.append(alike, start, 1);
    }
}

TEST_F(PlotPanelTest, ValuesAreScaledByThemselvesOrByTheUserForEachAxis) {
    const std::size_t small = panel.addSignal("Small", "V", Qt::red);
    const std::size_t large = panel.addSignal("Large", "V", Qt::blue);
    for (int i = 0; i <= 100; ++i) {
        panel.append(small, start + i * second / 10, i % 10);
        panel.append(large, start + i * second / 10, 1e6 * (9 - i % 10));
    }
    ASSERT_TRUE(waitForMax(1, "9000000"));
    EXPECT_LT(height(isRed), 10);
    choose(0, Qt::Key_O);
    const int scaled = height(isRed);
    EXPECT_GT(scaled, 100);
    auto& autoscale = get<QCheckBox>("plotAutoscale");
    wheel(middle, -20, Qt::ControlModifier);
    EXPECT_FALSE(autoscale.isChecked());
    EXPECT_TRUE(follow.isChecked());
    EXPECT_LT(height(isRed), scaled / 10);
    EXPECT_LT(height(isBlue), scaled / 10);
    wheel({5, 100}, 18);
    EXPECT_LT(height(isBlue), scaled / 10);
    EXPECT_GT(height(isRed), scaled / 3) << "its axis is there";
    QTest::mouseClick(&autoscale, Qt::LeftButton, {}, {8, autoscale.height() / 2});
    EXPECT_EQ(height(isRed), scaled);
    std::vector<std::size_t> removed;
    panel.setOnRemove([&](std::size_t number) { removed.push_back(number); });
    choose(1, Qt::Key_R);
    table.setCurrentCell(0, 0);
    QTest::keyClick(&table, Qt::Key_Delete);
    EXPECT_THAT(removed, ElementsAre(large, small));
    EXPECT_EQ(table.rowCount(), 0);
}

}  // namespace
