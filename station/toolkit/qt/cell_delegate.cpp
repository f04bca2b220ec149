#include "station/toolkit/qt/cell_delegate.h"

#include <QApplication>
#include <QLineEdit>
#include <QPainter>

namespace station {
namespace {

namespace CellType = Kestrova::Tessel::CellType;

constexpr int margin = 3;  // pixels

/// Calls `closed` when its list is closed, with or without a choice. Only what is picked there is
/// input, and not what merely is in it when the focus goes.
class CellComboBox final : public QComboBox {
  public:
    CellComboBox(QWidget* parent, std::function<void()> closed)
        : QComboBox(parent), onClosed(std::move(closed)) {}

    void hidePopup() override {
        QComboBox::hidePopup();
        QMetaObject::invokeMethod(this, onClosed, Qt::QueuedConnection);
    }

    bool isPicked = false;

  private:
    const std::function<void()> onClosed;
};

const QStyle& styleOf(const QStyleOptionViewItem& option) {
    return option.widget != nullptr ? *option.widget->style() : *QApplication::style();
}

void paintArrow(QPainter& painter, const QStyleOptionViewItem& option, const QRect& area,
                QStyle::PrimitiveElement arrow) {
    QStyleOption arrowOption;
    arrowOption.rect = area;
    arrowOption.palette = option.palette;
    arrowOption.state = QStyle::State_Enabled;
    styleOf(option).drawPrimitive(arrow, &arrowOption, &painter, option.widget);
}

void paintColor(QPainter& painter, const QRect& area, std::uint32_t color) {
    const QRect field = area.adjusted(margin, margin, -margin - 1, -margin - 1);
    painter.fillRect(field, QColor::fromRgb(color));
    painter.setPen(Qt::gray);
    painter.drawRect(field);
}

}  // namespace

CellDelegate::CellDelegate(const GridModel& gridModel, CountedRef<DrawGrid> drawGrid,
                           OnInput gridOnInput)
    : model(gridModel), grid(std::move(drawGrid)), onInput(std::move(gridOnInput)) {}

void CellDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                         const QModelIndex& index) const {
    QStyledItemDelegate::paint(painter, option, index);
    const CellContent& shows = model.content(index);
    painter->save();
    if (shows.type == CellType::color) {
        paintColor(*painter, option.rect, shows.color);
    } else if (shows.type == CellType::comboBox) {
        constexpr int width = 7;  // pixels, for the text needs the column
        paintArrow(
            *painter, option,
            {option.rect.right() - width, option.rect.center().y() - width / 2, width, width},
            QStyle::PE_IndicatorArrowDown);
    } else if (shows.type == CellType::groupExpander && shows.expander) {
        const auto group = grid->groupHeadedBy(model.gridRow(index));
        paintArrow(*painter, option, option.rect.adjusted(margin, margin, -margin, -margin),
                   group && group->isExpanded() ? QStyle::PE_IndicatorArrowDown
                                                : QStyle::PE_IndicatorArrowRight);
    }
    painter->restore();
}

QWidget* CellDelegate::createEditor(QWidget* parent, const QStyleOptionViewItem&,
                                    const QModelIndex& index) const {
    if (model.content(index).type == CellType::comboBox) {
        return createComboBox(parent);
    }
    auto* const line = new QLineEdit(parent);
    line->setFrame(false);
    return line;
}

QWidget* CellDelegate::createComboBox(QWidget* parent) const {
    auto* const self = const_cast<CellDelegate*>(this);
    auto* const box = new CellComboBox(parent, [self] { self->close(); });
    box->addItems(items);
    connect(box, &QComboBox::activated, this, [self, box] {
        box->isPicked = true;
        Q_EMIT self->commitData(box);
        self->close();
    });
    comboBox = box;
    return box;
}

void CellDelegate::setEditorData(QWidget* editor, const QModelIndex& index) const {
    const QString text = index.data(Qt::EditRole).toString();
    if (auto* const box = qobject_cast<QComboBox*>(editor)) {
        box->setCurrentIndex(box->findText(text));
    } else if (auto* const line = qobject_cast<QLineEdit*>(editor)) {
        line->setText(text);
    }
}

void CellDelegate::close() {
    if (comboBox) {
        Q_EMIT closeEditor(std::exchange(comboBox, nullptr), RevertModelCache);
    }
}

/// What the user hasn't touched is no input.
void CellDelegate::setModelData(QWidget* editor, QAbstractItemModel*,
                                const QModelIndex& index) const {
    if (auto* const box = dynamic_cast<CellComboBox*>(editor)) {
        if (std::exchange(box->isPicked, false)) {
            onInput(index, {box->currentText().toStdString(), 0, box->currentIndex()});
        }
    } else if (auto* const line = qobject_cast<QLineEdit*>(editor); line && line->isModified()) {
        line->setModified(false);
        onInput(index, {line->text().toStdString(), 0, 0});
    }
}

}  // namespace station
