#include "tests/support/qt_rig.h"

#include <QColorDialog>
#include <QComboBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QTest>
#include <QToolButton>

using namespace station;
namespace CellType = Kestrova::Tessel::CellType;

void QtUser::settle() {
    constexpr int rounds = 4;  // reports, questions they raise, deletions, and their reports
    for (int i = 0; i < rounds; ++i) {
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

GridView* QtUser::view(const std::string& grid) const {
    settle();
    return toolkit ? dynamic_cast<GridView*>(
                         toolkit->findChild<QTableView*>(QString::fromStdString(grid)))
                   : nullptr;
}

CountedRef<DrawGrid> QtUser::model(const std::string& grid) const {
    const WindowElement* const content = toolkit ? toolkit->window().getContent() : nullptr;
    const WindowElement* const element = content != nullptr ? content->find(grid) : nullptr;
    return element != nullptr ? element->grid : nullptr;
}

QModelIndex QtUser::show(const Cell& cell) const {
    GridView* const shown = view(cell.grid);
    for (int i = 0; shown != nullptr && i < shown->shown().rowCount(); ++i) {
        if (shown->shown().gridRow(i) == cell.row) {
            shown->scrollTo(shown->shown().index(i, cell.column));
            settle();
            return i < shown->shown().rowCount() ? shown->shown().index(i, cell.column)
                                                 : QModelIndex();
        }
    }
    return {};
}

std::vector<std::int32_t> QtUser::shownRows(const std::string& grid) const {
    std::vector<std::int32_t> rows;
    const GridView* const shown = view(grid);
    for (int i = 0; shown != nullptr && i < shown->shown().rowCount(); ++i) {
        rows.push_back(shown->shown().gridRow(i));
    }
    return rows;
}

std::string QtUser::read(const Cell& cell) const {
    const QModelIndex index = show(cell);
    if (!index.isValid()) {
        return "no such cell";
    }
    const CellContent& content = view(cell.grid)->shown().content(index);
    if (content.type == CellType::color) {
        return QString("%1").arg(content.color, 6, 16, QChar('0')).toUpper().toStdString();
    }
    if (content.type == CellType::groupExpander) {
        const auto group = model(cell.grid)->groupHeadedBy(cell.row);
        return !content.expander || !group ? "" : group->isExpanded() ? "-" : "+";
    }
    return index.data().toString().toStdString();
}

bool QtUser::isOfType(const Cell& cell, std::int32_t type) const {
    const QModelIndex index = show(cell);
    return index.isValid() && view(cell.grid)->shown().content(index).type == type;
}

bool QtUser::click(const Cell& cell, Qt::KeyboardModifiers modifiers) const {
    const QModelIndex index = show(cell);
    if (!index.isValid()) {
        return false;
    }
    const GridView* const shown = view(cell.grid);
    QTest::mouseClick(shown->viewport(), Qt::LeftButton, modifiers,
                      shown->visualRect(index).center());
    settle();
    return true;
}

bool QtUser::press(const std::string& button) const {
    settle();
    auto* const found =
        toolkit ? toolkit->findChild<QToolButton*>(QString::fromStdString(button)) : nullptr;
    if (found == nullptr) {
        return false;
    }
    QTest::mouseClick(found, Qt::LeftButton);
    settle();
    return true;
}

bool QtUser::type(const Cell& cell, const std::string& text) const {
    const QModelIndex index = show(cell);
    if (!index.isValid()) {
        return false;
    }
    GridView* const shown = view(cell.grid);
    const bool isTyped = (index.flags() & Qt::ItemIsEditable) != 0;
    shown->setFocus();
    shown->setCurrentIndex(index);
    QTest::keyClick(shown, isTyped ? Qt::Key_F2 : Qt::Key_A);
    settle();
    auto* const editor = shown->viewport()->findChild<QLineEdit*>();
    if (editor == nullptr) {
        return false;
    }
    editor->selectAll();
    QTest::keyClick(editor, Qt::Key_Delete);
    QTest::sendKeyEvent(QTest::Click, editor, Qt::Key_A, QString::fromStdString(text), {});
    QTest::keyClick(editor, Qt::Key_Return);
    settle();
    return true;
}

std::vector<std::string> QtUser::offers(const Cell& cell) const {
    std::vector<std::string> items;
    if (!isOfType(cell, CellType::comboBox) || !click(cell)) {
        return items;
    }
    if (auto* const box = view(cell.grid)->viewport()->findChild<QComboBox*>()) {
        for (int i = 0; i < box->count(); ++i) {
            items.push_back(box->itemText(i).toStdString());
        }
        QTest::keyClick(box->view(), Qt::Key_Escape);
    }
    settle();
    return items;
}

bool QtUser::pick(const Cell& cell, const std::string& item) const {
    if (!isOfType(cell, CellType::comboBox) || !click(cell)) {
        return false;
    }
    auto* const box = view(cell.grid)->viewport()->findChild<QComboBox*>();
    const int at = box != nullptr ? box->findText(QString::fromStdString(item)) : -1;
    if (at >= 0) {
        QAbstractItemView* const list = box->view();
        list->setCurrentIndex(list->model()->index(at, 0));
        QTest::keyClick(list, Qt::Key_Return);
    } else if (box != nullptr) {
        QTest::keyClick(box->view(), Qt::Key_Escape);
    }
    settle();
    return at >= 0;
}

bool QtUser::toggle(const Cell& cell) const {
    return isOfType(cell, CellType::toggle) && click(cell);
}

bool QtUser::setColor(const Cell& cell, std::uint32_t color) const {
    if (!isOfType(cell, CellType::color) || !click(cell)) {
        return false;
    }
    auto* const dialog = view(cell.grid)->findChild<QColorDialog*>();
    if (dialog == nullptr) {
        return false;
    }
    dialog->setCurrentColor(QColor::fromRgb(color));
    QTest::keyClick(dialog, Qt::Key_Return);
    settle();
    return true;
}

bool QtUser::fold(const std::string& grid, std::int32_t row) const {
    const auto shown = model(grid);
    const int columns = shown ? static_cast<int>(shown->getColumns().size()) : 0;
    for (int column = 0; column < columns; ++column) {
        const QModelIndex index = show({grid, row, column});
        if (index.isValid() && view(grid)->shown().content(index).expander) {
            return click({grid, row, column});
        }
    }
    return false;
}

bool QtUser::select(const std::string& grid, const std::vector<std::int32_t>& rows) const {
    view(grid)->clearSelection();
    return std::all_of(rows.begin(), rows.end(), [&](std::int32_t row) {
        return click({grid, row, 0}, Qt::ControlModifier);
    });
}

QtRig::QtRig()
    : widget(new QtWindow([this](const HandlerFailure& failure) {
          failures.push_back(static_cast<std::uint32_t>(failure.code));
      })) {
    constexpr int width = 900;
    constexpr int height = 400;
    toolkit = widget;
    widget->resize(width, height);
    widget->show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(widget));
}

QtRig::~QtRig() {
    delete widget;
    QtUser::settle();
}

std::vector<std::string> QtRig::titles(const std::string& grid) const {
    std::vector<std::string> titles;
    const GridView* const shown = view(grid);
    for (int column = 0; shown != nullptr && column < shown->shown().columnCount(); ++column) {
        const auto title = shown->shown().headerData(column, Qt::Horizontal, Qt::DisplayRole);
        titles.push_back(title.toString().toStdString());
    }
    return titles;
}

void QtRig::passTime(std::uint32_t milliseconds) {
    QTest::qWait(static_cast<int>(milliseconds + milliseconds / 2));  // timers may be a little late
    QtUser::settle();
}
