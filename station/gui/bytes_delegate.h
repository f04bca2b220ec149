#pragma once

#include <QStyledItemDelegate>

namespace station {

/// Draws data bytes, "01 02 FF", and marks those that `changedBytesRole` names.
class BytesDelegate final : public QStyledItemDelegate {
  public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
};

}  // namespace station
