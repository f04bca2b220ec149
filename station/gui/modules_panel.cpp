#include "station/gui/modules_panel.h"

#include <QHeaderView>
#include <QPushButton>
#include <utility>

#include "station/gui/live_columns.h"

namespace station {
namespace {

enum Column { Name, Type, CmId, Presence, Serial, Rate, Load, Frames, Missing, Clock, columns };

QString hex(std::uint16_t number) {
    return QString("0x%1").arg(QString::number(number, 16).toUpper());
}

}  // namespace

ModulesPanel::ModulesPanel(Workspace& shownWorkspace,
                           std::function<void(std::function<void()>)> toAttempt)
    : QTableWidget(0, columns), workspace(shownWorkspace), attempt(std::move(toAttempt)) {
    setObjectName("liveModules");
    setHorizontalHeaderLabels({"Module", "Type", "CM ID", "State", "Serial number", "Messages /s",
                               "Bus load", "Frames", "Missing", "Clock"});
    horizontalHeaderItem(Missing)->setToolTip(
        "Frames that a sequence counter has skipped: a hint only");
    horizontalHeaderItem(Load)->setToolTip(QString("In the mean of its buses. ") + loadToolTip);
    horizontalHeaderItem(Clock)->setToolTip(
        "Rate against the host's clock, distance of the latest reading from the fit, offset at the "
        "start, age of the latest reading");
    setEditTriggers(NoEditTriggers);
    setSelectionBehavior(SelectRows);
    setTabKeyNavigation(false);
    verticalHeader()->hide();
    horizontalHeader()->setStretchLastSection(true);
    constexpr int widths[] = {200, 100, 70, 130, 120, 100, 80, 100, 80};
    for (int column = 0; column < Clock; ++column) {
        setColumnWidth(column, widths[column]);
    }
}

void ModulesPanel::put(int row, int column, const QString& text) {
    QTableWidgetItem* there = item(row, column);
    if (there == nullptr) {
        there = new QTableWidgetItem;
        there->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        if (column > Type) {
            there->setFont(fixedFont());
        }
        setItem(row, column, there);
    }
    if (there->text() != text) {
        there->setText(text);
    }
}

void ModulesPanel::showModule(int row, const Summary* summary, std::size_t position,
                              const Module& module) {
    put(row, Name, QString::fromStdString(module.name));
    put(row, Type, QString::fromStdString(module.type));
    put(row, CmId, hex(module.cmId));
    put(row, Presence, module.connected ? "Connected" : "Not connected");
    put(row, Serial, QString::fromStdString(module.serial));
    put(row, Rate, summary != nullptr ? QString::number(summary->getRate(position), 'f', 0) : "");
    const auto load = summary != nullptr ? summary->getLoad(position) : std::nullopt;
    put(row, Load, load ? QString::fromStdString(loadText(*load)) : "");
    put(row, Frames, module.frames ? QString::number(module.frames->frames) : "");
    put(row, Missing, module.frames ? QString::number(module.frames->missingFrames) : "");
    put(row, Clock, module.clock ? QString::fromStdString(describeClock(*module.clock)) : "");
    removeCellWidget(row, Name);
}

void ModulesPanel::showUnlisted(int row, const Module& module, bool isMeasuring) {
    const QString text = "Add " + hex(module.cmId);
    const auto* const there = qobject_cast<QPushButton*>(cellWidget(row, Name));
    for (int column = 0; column < columns; ++column) {
        put(row, column, "");
    }
    put(row, Type, QString::fromStdString(module.type));
    put(row, CmId, hex(module.cmId));
    put(row, Presence, "Not set up");
    if (module.type.empty()) {
        put(row, Clock, "Its CM ID doesn't give its type: add a module and choose one");
        removeCellWidget(row, Name);
    } else if (there == nullptr || there->text() != text) {
        auto* const button = new QPushButton(text);
        setCellWidget(row, Name, button);
        connect(button, &QPushButton::clicked, this,
                [this, module] { attempt([this, module] { workspace.addUnlisted(module); }); });
    }
    if (QWidget* const button = cellWidget(row, Name)) {
        button->setEnabled(!isMeasuring);
        button->setToolTip(isMeasuring ? Workspace::lockReason : "");
    }
}

void ModulesPanel::showState() {
    const Summary& summary = workspace.summarize();
    show(summary, workspace.getModules(), workspace.findUnlisted(), workspace.isMeasuring());
}

void ModulesPanel::show(const Summary& summary, const std::vector<Module>& modules,
                        const std::vector<Module>& unlisted, bool isMeasuring) {
    setRowCount(static_cast<int>(modules.size() + unlisted.size()));
    int row = 0;
    for (std::size_t i = 0; i < modules.size(); ++i) {
        const bool isKnown = i < summary.modules.size() && isMeasuring;
        showModule(row++, isKnown ? &summary : nullptr, i, modules[i]);
    }
    for (const Module& module : unlisted) {
        showUnlisted(row++, module, isMeasuring);
    }
}

}  // namespace station
