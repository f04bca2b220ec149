#include "station/gui/database_dialog.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QVBoxLayout>
#include <utility>

#include "station/errors.h"
#include "station/gui/live_columns.h"
#include "station/signals/database.h"

namespace station {
namespace {

enum Role { ModuleRole = Qt::UserRole, ChannelRole };
enum DatabaseColumn { NameColumn, BusColumn, FilesColumn, RateColumn };

constexpr const char* databasesTopic = "databases";

QString rateText(const BitRates& rates) {
    QString text = rates.nominal != 0 ? QString::number(rates.nominal) : QString();
    return rates.data != 0 ? text + " / " + QString::number(rates.data) : text;
}

/// As the user has written it: "500000" or "500k".
std::uint32_t readRate(const QString& text) {
    QString digits = text.trimmed();
    const int factor = digits.endsWith('k') ? 1000 : digits.endsWith('M') ? 1'000'000 : 1;
    digits.chop(factor == 1 ? 0 : 1);
    bool isNumber = false;
    const double rate = digits.toDouble(&isNumber) * factor;
    if (digits.isEmpty()) {
        return 0;
    }
    if (!isNumber || rate < 1 || rate > 1e9) {
        throw UserError("\"" + text.toStdString() +
                        "\" is no bit rate: write bits a second, 500000 or 500k");
    }
    return static_cast<std::uint32_t>(rate);
}

QComboBox* makeRateBox(const char* name, const char* accessibleName, const QStringList& usual) {
    auto* const box = new QComboBox;
    box->setObjectName(name);
    box->setAccessibleName(accessibleName);
    box->setEditable(true);
    box->addItem(QString());
    box->addItems(usual);
    return box;
}

}  // namespace

DatabaseDialog::DatabaseDialog(Workspace& shownWorkspace, Attempt toAttempt, QWidget* parent)
    : QDialog(parent),
      workspace(shownWorkspace),
      attempt(std::move(toAttempt)),
      channels(new QTreeWidget),
      chooser(new QPushButton("&Choose...")),
      none(new QPushButton("&None")),
      nominal(makeRateBox("nominalRate", "Bit rate", {"125k", "250k", "500k", "1M", "19200"})),
      data(makeRateBox("dataRate", "Bit rate of the data phase", {"2M", "4M", "5M", "8M"})),
      setter(new QPushButton("&Set")),
      state(new QLabel) {
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle("Databases and bit rates");
    channels->setObjectName("databases");
    channels->setHeaderLabels({"Channel", "Bus", "Databases", "Bit rate"});
    channels->setSelectionMode(QAbstractItemView::ExtendedSelection);
    channels->setUniformRowHeights(true);
    chooser->setObjectName("chooseDatabases");
    none->setObjectName("noDatabases");
    setter->setObjectName("setBitRates");
    state->setObjectName("databaseState");
    auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    buttons->addButton(chooser, QDialogButtonBox::ActionRole);
    buttons->addButton(none, QDialogButtonBox::ActionRole);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(
        new QLabel("Select channels and choose the databases (.dbc, .ldf) that say "
                   "what their messages mean, or say how fast their buses are:"));
    layout->addWidget(channels, 1);
    layout->addLayout(makeRates());
    layout->addWidget(state);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    connect(chooser, &QPushButton::clicked, this, [this] { choose(); });
    connect(none, &QPushButton::clicked, this, [this] { put({}); });
    connect(setter, &QPushButton::clicked, this, [this] { putRates(); });
    connect(channels, &QTreeWidget::itemSelectionChanged, this, [this] { showButtons(); });
    connect(&timer, &QTimer::timeout, this, [this] { takeRead(); });
    showButtons();
    attempt([this] { fill(); }, {});
    constexpr int width = 800;
    constexpr int height = 450;
    resize(width, height);
}

QLayout* DatabaseDialog::makeRates() {
    auto* const row = new QHBoxLayout;
    nominal->setToolTip("Bits a second, of CAN FD those of the arbitration phase; for bus load");
    data->setToolTip("Of CAN FD, where the bit rate is switched");
    setter->setToolTip(loadToolTip);
    row->addWidget(new QLabel("Bit rate:"));
    row->addWidget(nominal);
    row->addWidget(new QLabel("data phase:"));
    row->addWidget(data);
    row->addWidget(setter);
    row->addStretch();
    return row;
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
            auto* const row =
                new QTreeWidgetItem(parent, {QString::fromStdString(channel.name),
                                             QString::fromStdString(channel.busType),
                                             files.join("; "), rateText(channel.bitRates)});
            row->setData(0, ModuleRole, static_cast<qulonglong>(module));
            row->setData(0, ChannelRole, static_cast<qulonglong>(i));
        }
    }
    channels->expandAll();
    channels->resizeColumnToContents(NameColumn);
    constexpr int filesWidth = 350;
    channels->setColumnWidth(FilesColumn, filesWidth);
}

void DatabaseDialog::showButtons() {
    const bool isReading = reading.isRunning();
    const bool hasSome = !channels->selectedItems().isEmpty() && !isReading;
    for (QPushButton* const button : {chooser, none, setter}) {
        button->setEnabled(hasSome);
    }
    channels->setEnabled(!isReading);
    state->setText(isReading ? "The databases are being read..." : "");
}

void DatabaseDialog::choose() {
    auto* const dialog =
        new QFileDialog(this, "Choose databases", {}, "Databases (*.dbc *.ldf);;All files (*)");
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFiles);
    connect(dialog, &QFileDialog::filesSelected, this,
            [this](const QStringList& files) { read(files); });
    dialog->open();
}

void DatabaseDialog::read(const QStringList& files) {
    std::vector<std::string> paths;
    for (const QString& file : files) {
        paths.push_back(file.toStdString());
    }
    found = std::make_shared<Read>();
    reading.start([paths, result = found](const std::atomic<bool>& isStopped) {
        try {
            for (const std::string& path : paths) {
                if (isStopped) {
                    break;
                }
                const Database database = readDatabase(path);
                result->files.push_back({path, database.bus});
                result->notices.insert(result->notices.end(), database.notices.begin(),
                                       database.notices.end());
            }
        } catch (const std::exception& error) {
            return QString::fromStdString(error.what());
        }
        return QString();
    });
    constexpr int period = 20;  // milliseconds
    timer.start(period);
    showButtons();
}

void DatabaseDialog::takeRead() {
    const std::optional<QString> failure = reading.takeResult();
    if (!failure) {
        return;
    }
    timer.stop();
    showButtons();
    if (!failure->isEmpty()) {
        attempt([&] { throw UserError(failure->toStdString()); }, databasesTopic);
        return;
    }
    put(found->files);
    for (const std::string& notice : found->notices) {
        attempt([&] { throw UserError(notice); }, databasesTopic);
    }
}

void DatabaseDialog::put(const std::vector<Workspace::DatabaseFile>& files) {
    QStringList paths;
    for (const Workspace::DatabaseFile& file : files) {
        paths.append(QString::fromStdString(file.path));
    }
    attempt(
        [&] {
            for (QTreeWidgetItem* const row : channels->selectedItems()) {
                workspace.chooseDatabases(row->data(0, ModuleRole).toULongLong(),
                                          row->data(0, ChannelRole).toULongLong(), files);
                row->setText(FilesColumn, paths.join("; "));
            }
        },
        databasesTopic);
}

void DatabaseDialog::putRates() {
    attempt(
        [&] {
            const BitRates rates{readRate(nominal->currentText()), readRate(data->currentText())};
            for (QTreeWidgetItem* const row : channels->selectedItems()) {
                workspace.chooseBitRates(row->data(0, ModuleRole).toULongLong(),
                                         row->data(0, ChannelRole).toULongLong(), rates);
                row->setText(RateColumn, rateText(rates));
            }
        },
        "bit rates");
}

}  // namespace station
