#pragma once

#include <QComboBox>
#include <QPointer>
#include <QStyledItemDelegate>
#include <functional>

#include "station/toolkit/model/draw_grid.h"
#include "station/toolkit/qt/grid_model.h"

namespace station {

/// Paints the cells of a grid by their types and edits texts, numbers and combo boxes in place.
class CellDelegate final : public QStyledItemDelegate {
  public:
    using OnInput = std::function<void(const QModelIndex&, CellInput)>;

    /// The model outlives it.
    CellDelegate(const GridModel& gridModel, CountedRef<DrawGrid> drawGrid, OnInput gridOnInput);

    /// What the next combo box offers.
    void setItems(QStringList comboItems) { items = std::move(comboItems); }
    QComboBox* openComboBox() const { return comboBox; }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                          const QModelIndex& index) const override;
    void setEditorData(QWidget* editor, const QModelIndex& index) const override;
    void setModelData(QWidget* editor, QAbstractItemModel* target,
                      const QModelIndex& index) const override;

  private:
    QWidget* createComboBox(QWidget* parent) const;
    /// The open combo box, if there is one.
    void close();

    const GridModel& model;
    const CountedRef<DrawGrid> grid;
    const OnInput onInput;
    QStringList items;
    mutable QPointer<QComboBox> comboBox;
};

}  // namespace station
