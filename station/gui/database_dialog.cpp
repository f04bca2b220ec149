#include "station/gui/database_dialog.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QVBoxLayout>
#include <utility>

namespace station {
namespace {

enum Role { ModuleRole = Qt::UserRole, ChannelRole };

}  // namespace

DatabaseDialog::DatabaseDialog(Workspace& shownWorkspace,
                               std::function<void(std::function<void()>)> toAttempt,
                               QWidget* parent)
    : QDialog(parent),
      workspace(shownWorkspace),
      attempt(std::move(toAttempt)),
      channels(new QTreeWidget) {
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle("Databases");
    channels->setObjectName("databases");
    channels->setHeaderLabels({"Channel", "Bus", "Databases"});
    channels->setSelectionMode(QAbstractItemView::ExtendedSelection);
    channels->setUniformRowHeights(true);
    auto* const add = new QPushButton("&Choose...");
    auto* const remove = new QPushButton("&None");
    add->setObjectName("chooseDatabases");
    remove->setObjectName("noDatabases");
    auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    buttons->addButton(add, QDialogButtonBox::ActionRole);
    buttons->addButton(remove, QDialogButtonBox::ActionRole);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(
        new QLabel("Select channels and choose the databases (.dbc, .ldf) that say "
                   "what their messages mean:"));
    layout->addWidget(channels, 1);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    connect(add, &QPushButton::clicked, this, [this] { choose(); });
    connect(remove, &QPushButton::clicked, this, [this] { put({}); });
    const auto showSelected = [this, add, remove] {
        const bool hasSome = !channels->selectedItems().isEmpty();
        add->setEnabled(hasSome);
        remove->setEnabled(hasSome);
    };
    connect(channels, &QTreeWidget::itemSelectionChanged, this, showSelected);
    showSelected();
    attempt([this] { fill(); });
    constexpr int width = 700;
    constexpr int height = 450;
    resize(width, height);
}

void DatabaseDialog::fill() {
    const std::vector<Module> modules = workspace.getModules();
    for (std::size_t module = 0; module < modules.size(); ++module) {
        auto* const parent = new QTreeWidgetItem(
            channels, QStringList(QString::fromStdString(modules[module].name)));
        parent->setFlags(Qt::ItemIsEnabled);
        for (std::size_t i = 0; i < modules[module].channels.size(); ++i) {
            const Channel& channel = modules[module].channels[i];
            QStringList files;
            for (const std::string& file : channel.databases) {
                files.append(QString::fromStdString(file));
            }
            auto* const row = new QTreeWidgetItem(
                parent, {QString::fromStdString(channel.name),
                         QString::fromStdString(channel.busType), files.join("; ")});
            row->setData(0, ModuleRole, static_cast<qulonglong>(module));
            row->setData(0, ChannelRole, static_cast<qulonglong>(i));
        }
    }
    channels->expandAll();
    channels->resizeColumnToContents(0);
}

void DatabaseDialog::choose() {
    auto* const dialog =
        new QFileDialog(this, "Choose databases", {}, "Databases (*.dbc *.ldf);;All files (*)");
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFiles);
    connect(dialog, &QFileDialog::filesSelected, this,
            [this](const QStringList& files) { put(files); });
    dialog->open();
}

void DatabaseDialog::put(const QStringList& files) {
    std::vector<std::string> paths;
    for (const QString& file : files) {
        paths.push_back(file.toStdString());
    }
    attempt([&] {
        for (QTreeWidgetItem* const row : channels->selectedItems()) {
            workspace.chooseDatabases(row->data(0, ModuleRole).toULongLong(),
                                      row->data(0, ChannelRole).toULongLong(), paths);
            row->setText(2, files.join("; "));
        }
    });
}

}  // namespace station
