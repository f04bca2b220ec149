#include "benchmarks/desktop_pictures.h"
#include "tests/station/gui/main_window_rig.h"

namespace {

using namespace main_window_rig;

TEST_F(MainWindowTest, MenusHaveTheirUsualKeys) {
    std::vector<std::string> keys;  // a platform may have more
    for (const QAction* const action : window->menuBar()->findChildren<QAction*>()) {
        keys.push_back((action->text() + ' ' + action->shortcut().toString()).toStdString());
    }
    EXPECT_THAT(keys, testing::IsSupersetOf({"&New Ctrl+N", "&Open... Ctrl+O", "&Save Ctrl+S",
                                             "&Start F5", "S&top Shift+F5"}));
}

TEST(MeasurementBarTest, TellsTimeSizeAndLosses) {
    MeasurementBar bar({}, {});
    RecordingSummary small, lossy, failed;
    small.bytes = 999'949;
    lossy.bytes = 50'000;
    lossy.lost = 3;
    failed.error = "disk full";
    const auto shown = [&](double seconds, std::vector<RecordingSummary> recordings, bool hasLost,
                           const std::vector<std::string>& gaps = {}) {
        Summary summary;
        summary.seconds = seconds;
        summary.recordings = std::move(recordings);
        bar.show(summary, hasLost, gaps);
        std::string texts;
        for (const char* const name : {"elapsed", "recordingSize", "loss"}) {
            texts += bar.findChild<QLabel*>(name)->text().toStdString() + '|';
        }
        const int red = bar.findChild<QLabel*>("loss")->palette().color(QPalette::Window).red();
        return texts + (red == 198 ? "red" : red == 255 ? "amber" : "green");
    };
    EXPECT_EQ(shown(-1.0, {}, false), "00:00:00.0|not recorded|Nothing lost|green");
    EXPECT_EQ(shown(7199.97, {small}, false), "01:59:59.9|999.9 kB|Nothing lost|green");
    EXPECT_EQ(shown(360'000.0, {small, lossy}, false),
              "100:00:00.0|1.0 MB|Recording failed, 3 messages not in it|red");
    EXPECT_EQ(shown(61.25, {failed}, false),
              "00:01:01.2|0.0 kB|Recording failed, 0 messages not in it|red");
    EXPECT_EQ(shown(0.0, {}, true, {"a"}), "00:00:00.0|not recorded|Messages lost|red");
    EXPECT_EQ(shown(0.0, {}, false, {"a <b>"}), "00:00:00.0|not recorded|a <b>|amber");
    EXPECT_EQ(shown(0.0, {}, false, {std::string(61, 'a'), "b", "c"}),
              "00:00:00.0|not recorded|" + std::string(60, 'a') + "... (and 2 more)|amber");
}

TEST_F(MainWindowTest, MessagesStandThereAndAreCountedUntilTheyAreDismissed) {
    auto* const bar = dynamic_cast<MessageBar*>(window->findChild<QFrame*>("messageBar"));
    ASSERT_NE(bar, nullptr);
    EXPECT_FALSE(bar->isVisible());
    bar->report("lost");
    bar->report("<b>\n\u202E");
    bar->report("lost");
    EXPECT_THAT(told(), testing::MatchesRegex("[0-2][0-9]:[0-5][0-9]:[0-6][0-9]  lost "
                                              "\\(2 times\\)\n[0-9:]+  <b> \\?"));
    for (const char* const text : {"c", "d", "e"}) {
        bar->report(text);
    }
    EXPECT_THAT(told(), testing::StartsWith("(1 earlier ones"));
    EXPECT_TRUE(window->findChild<QLabel*>("messages")->toolTip().contains("lost (2 times)"));
    bar->dismiss();
    EXPECT_FALSE(bar->isVisible());
    bar->report("again");
    const std::string first = told();
    QTest::qWait(1100);
    bar->report("again");
    EXPECT_NE(told().substr(0, 8), first.substr(0, 8)) << "the time is that of the last";
    bar->dismiss();
    window->open(QString::fromStdString(file("none.xml")));
    bar->report("stays");
    EXPECT_THAT(told(), HasSubstr("none.xml"));
    workspace().save(file("none.xml"));
    window->open(QString::fromStdString(file("none.xml")));
    EXPECT_THAT(told(), testing::MatchesRegex("[0-9:]+  stays")) << "a later success settles it";
}

TEST_F(MainWindowTest, TheSetupIsCheckedAndFirstStepsStandInAnEmptyOne) {
    const auto& firstSteps = *window->findChild<QLabel*>("firstSteps");
    EXPECT_TRUE(firstSteps.isVisible());
    addModule("CAN combo", "1");
    EXPECT_TRUE(QTest::qWaitFor([&] { return !firstSteps.isVisible(); }));
    addModule("CAN combo", "1");
    EXPECT_TRUE(QTest::qWaitFor([&] { return told().find("same CM ID 0x41") != told().npos; }));
    EXPECT_TRUE(modules().pick({modulesGrid, 2, ConfigId}, "2"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return told().empty(); })) << "it is settled";
    const auto& states = *window->findChild<QTableWidget*>("liveModules");
    EXPECT_EQ(states.rowCount(), 2);
    EXPECT_EQ(states.item(1, 2)->text(), "0x42");
    EXPECT_EQ(states.item(1, 3)->text(), "Not connected");
}

TEST_F(MainWindowTest, TheModulesPanelShowsWhatIsHeardOfEachAndAddsWhatIsntSetUp) {
    auto* const panel =
        dynamic_cast<ModulesPanel*>(window->findChild<QTableWidget*>("liveModules"));
    ASSERT_NE(panel, nullptr);
    Summary summary;
    summary.modules.resize(2);
    for (const auto& [module, rate, load] :
         {std::tuple(0U, 10.0, 0.1), {0U, 5.0, 0.3}, {1U, 7.0, -1.0}}) {
        ChannelSummary& channel = summary.channels.emplace_back();
        channel.module = module;
        channel.rate = rate;
        if (load >= 0) {
            channel.load = BusLoadSummary{{500'000, 0}, load, 0, 0};
        }
    }
    station::Module front{"Front", "CAN combo", 5, 0x45, "S-1", true};
    front.clock = ClockStatistics{.mode = ClockStatistics::softSync,
                                  .hasTime = true,
                                  .isPlaced = true,
                                  .offset = 1.5,
                                  .ratePpm = -12.34,
                                  .residual = 5e-6,
                                  .age = 0.25};
    front.frames = ModuleStatistics{80, 1, 20};
    station::Module doors{"Doors", "LIN combo", 2, 0x32, "S-2", false};
    doors.clock = ClockStatistics{.mode = ClockStatistics::ppsSlave, .hasTime = true, .age = 3.0};
    const station::Module heard{"", "CAN combo", 7, 0x47, "", true};
    const station::Module strange{"", "", 0, 0x99, "", true};
    const auto row = [&](int number) {
        std::string texts;
        for (int column = 0; column < panel->columnCount(); ++column) {
            const auto* const item = panel->item(number, column);
            texts += (column > 0 ? "|" : "") + (item ? item->text().toStdString() : "-");
        }
        return texts;
    };
    panel->show(summary, {front, doors}, {heard, strange}, true);
    EXPECT_EQ(row(0),
              "Front|CAN combo|0x45|Connected|S-1|15|20.0 %|80|20|soft sync -12.3 ppm, residual "
              "5.0 us, offset 1.500000 s, age 0.25 s");
    EXPECT_EQ(row(1), "Doors|LIN combo|0x32|Not connected|S-2|7||||PPS, not placed");
    EXPECT_EQ(row(2), "|CAN combo|0x47|Not set up||||||");
    EXPECT_THAT(row(3), HasSubstr("|0x99|Not set up|"));
    EXPECT_EQ(panel->cellWidget(3, 0), nullptr) << "its type isn't known";
    EXPECT_FALSE(panel->cellWidget(2, 0)->isEnabled());
    panel->show(summary, {front, doors}, {heard}, false);
    EXPECT_THAT(row(0), HasSubstr("|S-1|||80|")) << "there is no traffic";
    auto* const add = qobject_cast<QPushButton*>(panel->cellWidget(2, 0));
    ASSERT_TRUE(add != nullptr && add->isEnabled());
    EXPECT_EQ(add->text(), "Add 0x47");
    QTest::mouseClick(add, Qt::LeftButton);
    ASSERT_EQ(workspace().getSession().getModules().size(), 1U);
    EXPECT_EQ(workspace().getSession().getModules()[0].configId, 7U);
    EXPECT_EQ(channels().shownRows(channelsGrid).size(), 1U + 7);
}

TEST_F(MainWindowTest, TheKeyboardGoesFromTheTopLeftToTheBottomRight) {
    for (const bool isAnother : {false, true}) {
        if (isAnother) {
            EXPECT_TRUE(choose("&New"));
        }
        QtUser::settle();
        const QWidget* const first = window->findChild<QPushButton*>("start");
        std::vector<std::string> wrong;
        int last = 0;
        for (const QWidget* at = first->nextInFocusChain(); at != first;
             at = at->nextInFocusChain()) {
            const bool isReached = at->isVisible() && at->isEnabled() && at->window() == &*window &&
                                   (at->focusPolicy() & Qt::TabFocus) != 0;
            if (isReached && at->mapTo(&*window, QPoint()).y() + 40 < last) {
                wrong.push_back(at->objectName().toStdString());
            }
            last = isReached ? at->mapTo(&*window, QPoint()).y() : last;
        }
        EXPECT_THAT(wrong, testing::IsEmpty());
    }
}

TEST_F(MainWindowTest, ADarkPaletteIsDarkEverywhere) {
    addModule("CAN combo", "1");
    ASSERT_TRUE(waitForChannels(1 + 7));
    const QPalette usual = QApplication::palette();
    QApplication::setPalette(makeDarkPalette());
    for (int form = 0; form < 3; ++form) {
        window->findChild<QComboBox*>("liveMode")->setCurrentIndex(form);
        QtUser::settle();
        const QImage picture = window->grab().toImage();
        int light = 0;
        for (int y = 0; y < picture.height(); y += 3) {
            for (int x = 0; x < picture.width(); x += 3) {
                light += picture.pixelColor(x, y).lightness() > 150 ? 1 : 0;
            }
        }
        EXPECT_LT(light, picture.width() * picture.height() / 9 / 20) << "texts and colours alone";
    }
    QApplication::setPalette(usual);
}

TEST_F(MainWindowTest, NoTextMakesTheWindowWider) {
    QtUser::settle();
    const int width = window->minimumSizeHint().width();
    for (const char* const label : {"messages", "liveStatus", "loss", "elapsed"}) {
        window->findChild<QFrame*>("messageBar")->show();
        window->findChild<QLabel*>(label)->setText(QString(300, 'w'));
        QtUser::settle();
        EXPECT_EQ(window->minimumSizeHint().width(), width) << label;
    }
}

TEST_F(MainWindowTest, ColumnsOfModulesAndChannelsStayAsTheUserHasThem) {
    addModule("CAN combo", "1");
    ASSERT_TRUE(waitForChannels(1 + 7));
    channels().view(channelsGrid)->setColumnWidth(ChannelName, 111);
    addModule("LIN combo", "2");
    ASSERT_TRUE(waitForChannels(2 + 7 + 10));
    EXPECT_EQ(channels().view(channelsGrid)->columnWidth(ChannelName), 111) << "described again";
    workspace().save(file("two.xml"));
    window->findChild<QTableWidget*>("liveModules")->setColumnWidth(0, 123);
    window->close();
    QtUser::settle();
    MainWindow again(WorkspaceOptions{.plugin = PLUGIN_FILE, .onMessage = {}});
    again.open(QString::fromStdString(file("two.xml")));
    again.show();
    QtUser::settle();
    EXPECT_EQ(again.findChild<QTableWidget*>("liveModules")->columnWidth(0), 123);
    EXPECT_EQ(QtUser(again.getWorkspace().getChannelsWindow())
                  .view(channelsGrid)
                  ->columnWidth(ChannelName),
              111);
}

TEST_F(MainWindowTest, TheWindowComesBackWhereItWas) {
    window->resize(1111, 777);
    auto* const parts = window->findChild<QSplitter*>("parts");
    parts->setSizes({300, 200});
    QtUser::settle();
    const QList<int> sizes = parts->sizes();
    window->close();
    QtUser::settle();
    MainWindow again(WorkspaceOptions{.plugin = PLUGIN_FILE, .onMessage = {}});
    again.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&again));
    EXPECT_EQ(again.size(), QSize(1111, 777));
    EXPECT_EQ(again.findChild<QSplitter*>("parts")->sizes(), sizes);
    auto* const sides = again.findChild<QSplitter*>("windows");
    sides->setSizes({700, 400});
    const QList<int> widths = sides->sizes();
    again.open(QString::fromStdString(file("none.xml")));
    again.getWorkspace().begin();
    again.getWorkspace().save(file("empty.xml"));
    again.open(QString::fromStdString(file("empty.xml")));
    QtUser::settle();
    EXPECT_EQ(sides->sizes(), widths) << "of another setup, too";
}

}  // namespace
