#include <atomic>

#include "tests/station/gui/main_window_rig.h"

namespace {

std::atomic<bool> isDiskDead = false;

}  // namespace

/// In place of the system's: what a recording ends with.
extern "C" int fsync(int /*file*/) {
    isDiskDead.wait(true);
    return 0;
}

namespace {

using namespace main_window_rig;

TEST_F(MainWindowTest, WhatIsSetUpByHandIsWhatTheSavedSetupSays) {
    addModule("CAN combo", "B");
    addModule("LIN combo", "2");
    EXPECT_TRUE(modules().type({modulesGrid, 2, ModuleName}, "Doors"));
    ASSERT_TRUE(waitForChannels(2 + 7 + 10));
    EXPECT_TRUE(channels().select(channelsGrid, {3, 5}));
    EXPECT_TRUE(channels().toggle({channelsGrid, 3, Used})) << "and with it the other one";
    EXPECT_TRUE(channels().select(channelsGrid, {4, 6}));
    EXPECT_TRUE(channels().toggle({channelsGrid, 7, Used}) &&
                channels().toggle({channelsGrid, 7, Used}))
        << "alone, as it isn't selected";
    EXPECT_TRUE(channels().setColor({channelsGrid, 2, Color}, 0x12AB34));
    EXPECT_TRUE(channels().type({channelsGrid, 2, ChannelName}, "Engine"));
    EXPECT_TRUE(workspace().isModified());
    workspace().save(file("bench.xml"));
    EXPECT_FALSE(workspace().isModified());
    EXPECT_TRUE(choose("&Clocks..."));
    const auto lists = window->findChild<QDialog*>()->findChildren<QComboBox*>();
    ASSERT_EQ(lists.size(), 2);
    EXPECT_EQ(lists[0]->currentText(), "Follows by a fit (soft sync)");
    QTest::keyClick(lists[1], Qt::Key_End);
    EXPECT_EQ(lists[1]->currentText(), "Leads the measurement (PPS)");
    EXPECT_TRUE(workspace().isModified());
    EXPECT_TRUE(window->findChild<QDialog*>()->close());
    workspace().save(file("bench.xml"));
    EXPECT_FALSE(workspace().isModified());

    EXPECT_EQ(saved("bench.xml"),
              "CAN combo 11 Technica CAN combo: Technica CAN combo 0x20 Technica CAN combo "
              "0x40|LIN combo 2 Doors:|17");
    window->open(QString::fromStdString(file("bench.xml")));
    const std::vector<ClockChoice> clocks = {{HostGnssDevice::syncModeSoft, false},
                                             {HostGnssDevice::syncModePps, true}};
    EXPECT_EQ(workspace().getSession().getClocks(), clocks);
    EXPECT_EQ(channels().read({channelsGrid, 2, ChannelName}), "Engine");
    EXPECT_EQ(channels().read({channelsGrid, 2, Color}), "12AB34");
    EXPECT_TRUE(modules().select(modulesGrid, {1}));
    EXPECT_TRUE(modules().press("removeDeviceButton"));
    EXPECT_TRUE(waitForChannels(1 + 10));
}

TEST_F(MainWindowTest, ChangesAreNotLostWithoutAQuestion) {
    EXPECT_TRUE(choose("&New"));
    EXPECT_FALSE(answer(QMessageBox::RejectRole)) << "there is nothing to lose";
    addModule("CAN combo", "1");
    EXPECT_TRUE(choose("&New"));
    EXPECT_TRUE(answer(QMessageBox::RejectRole));
    EXPECT_EQ(workspace().getSession().getModules().size(), 1U);
    window->close();
    EXPECT_TRUE(answer(QMessageBox::RejectRole));
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(choose("&New"));
    EXPECT_TRUE(answer(QMessageBox::DestructiveRole));
    EXPECT_TRUE(workspace().getSession().getModules().empty());
    EXPECT_TRUE(QTest::qWaitFor([&] { return modules().shownRows(modulesGrid).empty(); }));
    window->close();
    QtUser::settle();
    EXPECT_FALSE(window->isVisible());
}

TEST_F(MainWindowTest, ASetupThatCannotBeReadIsReportedAndLeavesTheOneThatIsOpen) {
    addModule("CAN combo", "1");
    workspace().save(file("good.xml"));
    std::ofstream(file("bad.xml")) << "<Setup><";
    for (const char* const name : {"bad.xml", "none.xml"}) {
        window->open(QString::fromStdString(file(name)));
        EXPECT_THAT(told(), HasSubstr(name));
        EXPECT_EQ(workspace().getPath(), file("good.xml"));
        EXPECT_EQ(workspace().getSession().getModules().size(), 1U);
    }
    window->open(QString::fromStdString(file("good.xml")));
    EXPECT_EQ(modules().read({modulesGrid, 1, Type}), "CAN combo") << "in the new windows";
    EXPECT_THAT(QSettings().value("recentSetups").toStringList(),
                ElementsAre(QString::fromStdString(file("good.xml"))));
}

TEST_F(MainWindowTest, AMeasurementRunsAndSaysWhatItLeavesOutAndIsEndedByTheUser) {
    leaveNetwork();
    auto& start = *window->findChild<QPushButton*>("start");
    auto& stop = *window->findChild<QPushButton*>("stop");
    auto& path = *window->findChild<QLineEdit*>("recordingPath");
    const auto isOver = [&] { return !workspace().isMeasuring(); };
    QTest::mouseClick(&start, Qt::LeftButton);
    EXPECT_THAT(told(), HasSubstr("No channel is used"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return stop.isEnabled() && !start.isEnabled(); }));
    EXPECT_TRUE(choose("S&top"));
    EXPECT_TRUE(waitUntilOver());
    addModule("LIN combo", "2");
    ASSERT_TRUE(waitForChannels(1 + 10));
    EXPECT_TRUE(channels().toggle({channelsGrid, 2, Used}));
    QTest::mouseClick(window->findChild<QCheckBox*>("records"), Qt::LeftButton);
    path.setText(folder.filePath("no such folder/a.pcapng"));
    EXPECT_TRUE(choose("&Start"));
    EXPECT_THAT(told(), HasSubstr("no such folder"));
    EXPECT_TRUE(isOver()) << "nothing has started";
    path.setText(folder.filePath("a-9.log"));
    EXPECT_TRUE(choose("&Start"));
    EXPECT_THAT(told(), HasSubstr("can't hold LIN: 1 channels"));
    const auto& badge = *window->findChild<QLabel*>("loss");
    const auto shows = [&](const char* text) {
        return QTest::qWaitFor([&] { return badge.toolTip().contains(text); }, 60000);
    };
    EXPECT_TRUE(shows("can't hold LIN")) << badge.text().toStdString();
    EXPECT_TRUE(shows("isn't heard")) << "the module, which there isn't";
    EXPECT_THAT(told(), HasSubstr("check its connection and ConfigId"));
    EXPECT_TRUE(choose("&New"));
    EXPECT_TRUE(answer(QMessageBox::RejectRole));
    EXPECT_TRUE(workspace().isMeasuring() && !workspace().isEnding());
    EXPECT_TRUE(choose("&New"));
    EXPECT_TRUE(answer(QMessageBox::AcceptRole));
    EXPECT_TRUE(waitUntilOver());
    EXPECT_TRUE(shows("isn't heard")) << "it stays";
    EXPECT_EQ(path.text(), folder.filePath("a-10.log")) << "the next recording's";
    EXPECT_TRUE(answer(QMessageBox::DestructiveRole)) << "of the setup";
    EXPECT_TRUE(workspace().getSession().getModules().empty());
}

TEST_F(MainWindowTest, ADiskThatDoesNotConfirmIsLeftIfTheUserWantsIt) {
    leaveNetwork();
    QTest::mouseClick(window->findChild<QCheckBox*>("records"), Qt::LeftButton);
    window->findChild<QLineEdit*>("recordingPath")->setText(folder.filePath("a.pcapng"));
    EXPECT_TRUE(choose("&Start"));
    isDiskDead = true;
    window->close();
    EXPECT_TRUE(answer(QMessageBox::AcceptRole));
    const auto asks = [&] {
        const auto* const box = window->findChild<QMessageBox*>();
        return box != nullptr && box->text().contains("hasn't confirmed");
    };
    EXPECT_TRUE(QTest::qWaitFor(asks, 60000));
    EXPECT_TRUE(workspace().isMeasuring() && window->isVisible());
    EXPECT_TRUE(answer(QMessageBox::AcceptRole));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !window->isVisible(); }, 60000));
    EXPECT_THAT(told(), HasSubstr("the disk hasn't confirmed"));
    isDiskDead = false;
    isDiskDead.notify_all();
}

TEST_F(MainWindowTest, WhatWouldSilenceAMeasurementIsLockedAndTheSetupIsSavedWhole) {
    leaveNetwork();
    const auto& notice = *window->findChild<QLabel*>("lockNotice");
    const auto isUsed = [&] { return channels().read({channelsGrid, 2, Used}) == "Used"; };
    addModule("LIN combo", "2");
    ASSERT_TRUE(waitForChannels(1 + 10));
    EXPECT_TRUE(channels().toggle({channelsGrid, 2, Used}));
    EXPECT_TRUE(modules().press("addDeviceButton"));
    workspace().save(file("setup.xml"));
    EXPECT_FALSE(notice.isVisible());
    QTest::mouseClick(window->findChild<QPushButton*>("start"), Qt::LeftButton);
    ASSERT_TRUE(workspace().isMeasuring());
    EXPECT_TRUE(QTest::qWaitFor([&] { return notice.isVisible(); }));
    EXPECT_THAT(notice.text().toStdString(), HasSubstr("stop it to"));
    EXPECT_EQ(window->findChild<QToolButton*>("addDeviceButton")->toolTip(), notice.text());
    const auto& live = *window->findChild<QTreeView*>("liveIdentifiers")->model();
    EXPECT_TRUE(QTest::qWaitFor([&] { return live.rowCount() == 1; })) << "the used one";
    for (const char* const type : {"CAN combo", "LIN combo"}) {
        EXPECT_FALSE(modules().pick({modulesGrid, 1, Type}, type));
    }
    EXPECT_FALSE(modules().pick({modulesGrid, 1, ConfigId}, "3"));
    EXPECT_FALSE(modules().type({modulesGrid, 2, ConfigId}, "7")) << "a number that is typed";
    modules().press("addDeviceButton");
    modules().select(modulesGrid, {1});
    modules().press("removeDeviceButton");
    QTest::keyClick(modules().view(modulesGrid), Qt::Key_Delete);
    channels().toggle({channelsGrid, 2, Used});
    EXPECT_TRUE(isUsed());
    EXPECT_TRUE(modules().type({modulesGrid, 1, ModuleName}, "Doors"));
    EXPECT_TRUE(channels().type({channelsGrid, 2, ChannelName}, "Left"));
    EXPECT_TRUE(choose("&Save"));
    EXPECT_EQ(saved("setup.xml"), "LIN combo 2 Doors: Left|Unknown 0 :|10");
    EXPECT_TRUE(choose("S&top"));
    EXPECT_TRUE(waitUntilOver());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !notice.isVisible(); }));
    EXPECT_TRUE(channels().toggle({channelsGrid, 2, Used}));
    EXPECT_FALSE(isUsed());
    EXPECT_TRUE(modules().press("addDeviceButton"));
    EXPECT_EQ(modules().shownRows(modulesGrid).size(), 3U);
}

TEST_F(MainWindowTest, ATypeThatChangesToAndFroBetweenTwoLooksLeavesNothingOfTheOldChannels) {
    leaveNetwork();
    addModule("CAN combo", "1");
    ASSERT_TRUE(waitForChannels(1 + 7));
    const auto flip = [&] {
        for (const wchar_t* const type : {L"LIN combo", L"CAN combo"}) {
            workspace().getSession().getDriver().callModules(
                "", [&](ModuleList& list) { return list.setType(0, type); });
        }
    };
    EXPECT_TRUE(channels().toggle({channelsGrid, 2, Used}));
    flip();
    workspace().save(file("setup.xml"));
    EXPECT_EQ(saved("setup.xml"), "CAN combo 1 Technica CAN combo:|7");
    EXPECT_TRUE(channels().toggle({channelsGrid, 3, Used})) << "it shows the new ones";
    flip();
    EXPECT_TRUE(channels().read({channelsGrid, 3, Used}) != "" && choose("&Start"));
    EXPECT_TRUE(workspace().summarize().channels.empty());
    EXPECT_TRUE(choose("S&top"));
    EXPECT_TRUE(waitUntilOver());
    workspace().start({});
    flip();
    EXPECT_THROW(workspace().save(file("setup.xml")), UserError) << "it has no channels now";
    EXPECT_EQ(saved("setup.xml"), "CAN combo 1 Technica CAN combo:|7");
    workspace().requestStop();
    EXPECT_TRUE(waitUntilOver());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !workspace().getSession().needsChannels(); }, 60000));
    EXPECT_TRUE(channels().toggle({channelsGrid, 4, Used}));
    workspace().start({});
    EXPECT_EQ(workspace().summarize().channels.size(), 1U) << "of one that is alive";
}

TEST_F(MainWindowTest, ASetupThatAnotherProgramChangedIsNotWrittenOverUnasked) {
    const auto save = [&] {
        EXPECT_TRUE(choose("&Save"));
        return contents(file("setup.xml"));
    };
    const auto changeIt = [&](const char* by) {
        std::ofstream(file("setup.xml"), std::ios::app) << "<!-- " << by << " -->";
        return contents(file("setup.xml"));
    };
    addModule("CAN combo", "1");
    workspace().save(file("other.xml"));
    workspace().save(file("setup.xml"));
    window->open(QString::fromStdString(file("setup.xml")));
    addModule("LIN combo", "2");
    {
        const SetupLock lock(file("setup.xml"));
        save();
        EXPECT_THAT(told(), HasSubstr("another program is changing setups"));
    }
    save();
    EXPECT_EQ(saved("setup.xml"),
              "CAN combo 1 Technica CAN combo:|LIN combo 2 Technica LIN combo:|17")
        << "its own changes are no reason to ask";
    std::string theirs = changeIt("first");
    EXPECT_EQ(save(), theirs);
    EXPECT_TRUE(answer(QMessageBox::RejectRole));
    changeIt("second");
    EXPECT_FALSE(workspace().save(file("./setup.xml"))) << "the same by another name";
    theirs = changeIt("third");
    EXPECT_EQ(save(), theirs) << "again";
    EXPECT_TRUE(answer(QMessageBox::AcceptRole));
    EXPECT_EQ(contents(file("setup.xml.bak")), theirs);
    EXPECT_NE(contents(file("setup.xml")), theirs);
    EXPECT_TRUE(modules().type({modulesGrid, 1, ModuleName}, "Mine"));
    std::filesystem::copy_file(file("other.xml"), file("setup.xml"),
                               std::filesystem::copy_options::overwrite_existing);
    save();
    EXPECT_TRUE(answer(QMessageBox::DestructiveRole));
    EXPECT_EQ(modules().shownRows(modulesGrid).size(), 1U);
    EXPECT_EQ(modules().read({modulesGrid, 1, ModuleName}), "Technica CAN combo");
    EXPECT_FALSE(workspace().isModified());
}

TEST_F(MainWindowTest, DatabasesAreChosenForChannelsAndKeptInTheSetup) {
    leaveNetwork();
    addModule("CAN combo", "1");
    ASSERT_TRUE(waitForChannels(1 + 7));
    EXPECT_TRUE(channels().toggle({channelsGrid, 2, Used}));
    workspace().save(file("setup.xml"));
    std::ofstream(file("engine.dbc")) << "BU_: A\nBO_ 256 Engine: 8 A\n SG_ Speed : 0|8@1+ (1,0) "
                                         "[0|0] \"\" A\n";
    std::ofstream(file("torn.dbc")) << "BO_ 256 Engine";
    EXPECT_TRUE(choose("&Databases and bit rates..."));
    auto& rows = *window->findChild<QTreeWidget*>("databases");
    auto& put = *window->findChild<QPushButton*>("chooseDatabases");
    EXPECT_FALSE(put.isEnabled());
    rows.topLevelItem(0)->child(0)->setSelected(true);
    const auto pick = [&](const char* name) {
        QTest::mouseClick(&put, Qt::LeftButton);
        auto* const dialog = rows.window()->findChild<QFileDialog*>();
        Q_EMIT dialog->filesSelected({QString::fromStdString(file(name))});
        delete dialog;
        const auto& state = *rows.window()->findChild<QLabel*>("databaseState");
        EXPECT_TRUE(QTest::qWaitFor([&] { return state.text().isEmpty(); }, 60000));
        QtUser::settle();
    };
    pick("torn.dbc");
    EXPECT_THAT(told(), HasSubstr("torn.dbc"));
    EXPECT_EQ(rows.topLevelItem(0)->child(0)->text(2), "");
    EXPECT_FALSE(workspace().isModified());
    pick("engine.dbc");
    EXPECT_EQ(rows.topLevelItem(0)->child(0)->text(2).toStdString(), file("engine.dbc"));
    EXPECT_TRUE(workspace().isModified());
    rows.window()->close();
    workspace().save(file("setup.xml"));
    window->open(QString::fromStdString(file("setup.xml")));
    EXPECT_TRUE(choose("&Start"));
    const auto& shown = workspace().getFeed().getChannels();
    ASSERT_EQ(shown.size(), 1U);
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return shown[0].findMessage(256, false) != nullptr; }, 60000));
    EXPECT_TRUE(choose("S&top"));
    EXPECT_TRUE(waitUntilOver());
    std::filesystem::remove(file("engine.dbc"));
    EXPECT_TRUE(choose("&Start"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return told().find("engine.dbc") != told().npos; }, 60000))
        << "it measures without";
    EXPECT_TRUE(workspace().isMeasuring() && !workspace().getFeed().isAwaitingDecoders());
    EXPECT_TRUE(choose("S&top"));
    EXPECT_TRUE(waitUntilOver());
}

TEST_F(MainWindowTest, BitRatesAndDatabasesGoToTheChosenChannelsAlone) {
    leaveNetwork();
    addModule("CAN combo", "1");
    addModule("LIN combo", "2");
    ASSERT_TRUE(waitForChannels(2 + 7 + 10));
    std::ofstream(file("doors.ldf")) << "LIN_description_file;\nSignals { Open: 1, 0, A, B; }\n"
                                        "Frames { State: 5, A, 1 { Open, 0; } Same: 5, A, 1 { } }";
    std::ofstream(file("engine.dbc")) << "BO_ 256 Engine: 8 A\n SG_ Speed : 0|8@1+ (1,0) "
                                         "[0|0] \"\" A\n";
    const auto channel = [&](std::size_t module, std::size_t number) {
        return workspace().getSession().getModules()[module].channels[number];
    };
    const auto open = [&] {
        EXPECT_TRUE(choose("&Databases and bit rates..."));
        return window->findChild<QTreeWidget*>("databases");
    };
    QTreeWidget* rows = open();
    const auto press = [&](const char* name) {
        QTest::mouseClick(rows->window()->findChild<QPushButton*>(name), Qt::LeftButton);
        QtUser::settle();
    };
    const auto set = [&](const char* nominal, const char* data) {
        rows->window()->findChild<QComboBox*>("nominalRate")->setCurrentText(nominal);
        rows->window()->findChild<QComboBox*>("dataRate")->setCurrentText(data);
        press("setBitRates");
    };
    const auto pick = [&](const char* name) {
        press("chooseDatabases");
        auto* const dialog = rows->window()->findChild<QFileDialog*>();
        Q_EMIT dialog->filesSelected({QString::fromStdString(file(name))});
        delete dialog;
        const auto& state = *rows->window()->findChild<QLabel*>("databaseState");
        EXPECT_TRUE(QTest::qWaitFor([&] { return state.text().isEmpty(); }, 60000));
    };
    rows->topLevelItem(0)->child(1)->setSelected(true);
    set("500k", "2M");
    EXPECT_EQ(rows->topLevelItem(0)->child(1)->text(3), "500000 / 2000000");
    EXPECT_TRUE(workspace().isModified());
    set("fast", "");
    EXPECT_THAT(told(), HasSubstr("\"fast\" is no bit rate"));
    set("500k", "250k");
    EXPECT_THAT(told(), HasSubstr("isn't slower"));
    EXPECT_EQ(channel(0, 1).bitRates, (BitRates{500'000, 2'000'000}));
    set("500k", "2M");
    EXPECT_EQ(told(), "") << "a later success settles it";
    pick("doors.ldf");
    EXPECT_THAT(told(), HasSubstr("is no database of CAN"));
    EXPECT_TRUE(channel(0, 1).databases.empty());
    rows->clearSelection();
    rows->topLevelItem(1)->child(2)->setSelected(true);
    pick("doors.ldf");
    EXPECT_THAT(told(), HasSubstr("has the identifier of State, which counts")) << "a notice";
    set("19200", "");
    EXPECT_THAT(channel(1, 2).databases, ElementsAre(file("doors.ldf")));
    EXPECT_TRUE(channel(0, 2).databases.empty() && channel(1, 1).databases.empty());
    rows->window()->close();
    QtUser::settle();
    // Beside the setup's file, wherever the program runs.
    workspace().getSession().findOutput(channel(0, 0)).setDatabases({L"engine.dbc"});
    EXPECT_TRUE(channels().toggle({channelsGrid, 2, Used}));
    workspace().save(file("setup.xml"));
    window->open(QString::fromStdString(file("setup.xml")));
    EXPECT_EQ(channel(0, 1).bitRates, (BitRates{500'000, 2'000'000}));
    EXPECT_EQ(channel(1, 2).bitRates, (BitRates{19'200, 0}));
    EXPECT_FALSE(workspace().isModified());
    workspace().start({});
    EXPECT_TRUE(workspace().getFeed().isAwaitingDecoders()) << "they are read beside it";
    const auto& shown = workspace().getFeed().getChannels();
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return shown[0].findMessage(256, false) != nullptr; }, 60000));
    EXPECT_TRUE(choose("S&top"));
    EXPECT_TRUE(waitUntilOver());
    rows = open();
    EXPECT_EQ(rows->topLevelItem(1)->child(2)->text(2).toStdString(), file("doors.ldf"));
    EXPECT_EQ(rows->topLevelItem(1)->child(2)->text(3), "19200");
    rows->topLevelItem(1)->child(2)->setSelected(true);
    press("noDatabases");
    EXPECT_TRUE(channel(1, 2).databases.empty());
    EXPECT_EQ(rows->topLevelItem(1)->child(2)->text(2), "");
}

}  // namespace
