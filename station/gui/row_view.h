#pragma once

#include <QAbstractItemView>
#include <QHeaderView>
#include <QScrollBar>

namespace station {

/// A table of any number of rows that are all of one height. It costs nothing for rows that aren't
/// seen, where Qt's tables keep a place for each; and it scrolls by rows.
class RowView final : public QAbstractItemView {
  public:
    RowView();

    QHeaderView* getHeader() const { return header; }
    void setModel(QAbstractItemModel* newModel) override;

    QRect visualRect(const QModelIndex& index) const override;
    void scrollTo(const QModelIndex& index, ScrollHint hint) override;
    QModelIndex indexAt(const QPoint& point) const override;
    QSize viewportSizeHint() const override;

  protected:
    QModelIndex moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers) override;
    int horizontalOffset() const override { return horizontalScrollBar()->value(); }
    int verticalOffset() const override { return verticalScrollBar()->value() * rowHeight(); }
    bool isIndexHidden(const QModelIndex&) const override { return false; }
    void setSelection(const QRect& area, QItemSelectionModel::SelectionFlags command) override;
    QRegion visualRegionForSelection(const QItemSelection& selection) const override;
    void paintEvent(QPaintEvent* event) override;
    void updateGeometries() override;
    void scrollContentsBy(int x, int y) override;

  private:
    int rowHeight() const;
    int rowCount() const { return model() != nullptr ? model()->rowCount() : 0; }
    /// Whole rows that fit.
    int pageRows() const;
    /// Lays the rows out again, after a change of the model or the header.
    void layOut();

    QHeaderView* const header;
};

}  // namespace station
