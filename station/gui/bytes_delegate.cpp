#include "station/gui/bytes_delegate.h"

#include <QApplication>
#include <QPainter>

#include "station/gui/live_columns.h"

namespace station {

void BytesDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                          const QModelIndex& index) const {
    const qulonglong changed = index.data(changedBytesRole).toULongLong();
    if (changed == 0) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    QStyleOptionViewItem plain = option;
    initStyleOption(&plain, index);
    const QString text = std::exchange(plain.text, QString());
    const QStyle* const style =
        option.widget != nullptr ? option.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &plain, painter, option.widget);

    painter->save();
    painter->setClipRect(option.rect);
    painter->setFont(plain.font);
    const bool isSelected = option.state.testFlag(QStyle::State_Selected);
    const QColor usual =
        plain.palette.color(isSelected ? QPalette::HighlightedText : QPalette::Text);
    const QFontMetrics metrics(plain.font);
    const int margin = style->pixelMetric(QStyle::PM_FocusFrameHMargin, &plain) + 1;
    QRect cell = option.rect.adjusted(margin, 0, 0, 0);
    constexpr int digits = 3;  // with the blank
    for (int byte = 0; byte * digits < text.size(); ++byte) {
        const QString part = text.mid(byte * digits, digits - 1);
        const bool isMarked = (changed >> byte & 1U) != 0;
        cell.setWidth(metrics.horizontalAdvance(part));
        if (isMarked) {
            painter->fillRect(cell, plain.palette.color(QPalette::Highlight));
        }
        painter->setPen(isMarked ? plain.palette.color(QPalette::HighlightedText) : usual);
        painter->drawText(cell, Qt::AlignLeft | Qt::AlignVCenter, part);
        cell.moveLeft(cell.left() + metrics.horizontalAdvance(part + ' '));
    }
    painter->restore();
}

}  // namespace station
