#include "station/gui/clock_dialog.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QVBoxLayout>
#include <array>
#include <utility>

namespace station {
namespace {

struct Way {
    const char* text;
    ClockChoice choice;
};

/// Only a clock in PPS sync can lead.
constexpr std::array ways = {
    Way{"Follows by a fit (soft sync)", {HostGnssDevice::syncModeSoft, false}},
    Way{"Follows by a PPS cable", {HostGnssDevice::syncModePps, false}},
    Way{"Leads the measurement (PPS)", {HostGnssDevice::syncModePps, true}}};

}  // namespace

ClockDialog::ClockDialog(Workspace& shownWorkspace,
                         std::function<void(std::function<void()>)> runAndReport, QWidget* parent)
    : QDialog(parent), workspace(shownWorkspace), attempt(std::move(runAndReport)) {
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle("Clocks");
    auto* const layout = new QVBoxLayout(this);
    auto* const rows = new QFormLayout;
    layout->addLayout(rows);
    const auto modules = workspace.getSession().getModules();
    const auto clocks = workspace.getSession().getClocks();
    for (std::size_t i = 0; i < modules.size() && i < clocks.size(); ++i) {
        addRow(*rows, i, modules[i].name, clocks[i]);
    }
    if (modules.empty()) {
        layout->addWidget(
            new QLabel("There are no modules yet: add one in the window of modules."));
    }
    auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    layout->addWidget(buttons);
}

void ClockDialog::addRow(QFormLayout& rows, std::size_t module, const std::string& name,
                         const ClockChoice& present) {
    auto* const list = new QComboBox;
    for (const Way& way : ways) {
        list->addItem(way.text);
        if (way.choice == present) {
            list->setCurrentIndex(list->count() - 1);
        }
    }
    connect(list, &QComboBox::activated, this, [this, module](int chosen) {
        attempt([&] {
            workspace.chooseClock(module, ways.at(static_cast<std::size_t>(chosen)).choice);
        });
    });
    auto* const label = new QLabel(QString::fromStdString(name));
    label->setTextFormat(Qt::PlainText);
    list->setAccessibleName(label->text());
    rows.addRow(label, list);
}

}  // namespace station
