#include "station/toolkit/qt/grid_model.h"

#include <QColor>

namespace station {

namespace CellType = Kestrova::Tessel::CellType;

namespace {

std::string shownText(const CellContent& content) {
    switch (content.type) {
        case CellType::number:
        case CellType::editNumber:
            return numberText(content.number);
        case CellType::color:
        case CellType::groupExpander:
            return {};
        default:
            return content.text;
    }
}

}  // namespace

int GridModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(shown.size());
}

int GridModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(titles.size());
}

GridModel::Cell& GridModel::cell(const QModelIndex& index) {
    return shown.at(static_cast<std::size_t>(index.row()))
        .cells.at(static_cast<std::size_t>(index.column()));
}

const GridModel::Cell& GridModel::cell(const QModelIndex& index) const {
    return const_cast<GridModel*>(this)->cell(index);
}

const CellContent& GridModel::content(const QModelIndex& index) const {
    return cell(index).content;
}

QVariant GridModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid()) {
        return {};
    }
    const CellContent& shows = content(index);
    const bool isNumber = shows.type == CellType::number || shows.type == CellType::editNumber;
    switch (role) {
        case Qt::DisplayRole:
        case Qt::EditRole:
            return QString::fromStdString(shownText(shows));
        case Qt::CheckStateRole:
            return shows.type == CellType::toggle
                       ? QVariant(shows.checked ? Qt::Checked : Qt::Unchecked)
                       : QVariant();
        case Qt::ForegroundRole:
            return locked && isLockable(index) ? QVariant(QColor(Qt::gray)) : QVariant();
        case Qt::TextAlignmentRole:
            return QVariant(Qt::Alignment(isNumber ? Qt::AlignRight : Qt::AlignLeft) |
                            Qt::AlignVCenter);
        default:
            return {};
    }
}

QVariant GridModel::headerData(int section, Qt::Orientation orientation, int role) const {
    return orientation == Qt::Horizontal && role == Qt::DisplayRole ? titles.value(section)
                                                                    : QVariant();
}

bool GridModel::isLockable(const QModelIndex& index) const {
    const std::int32_t type = content(index).type;
    return type == CellType::toggle || type == CellType::comboBox || type == CellType::editNumber;
}

Qt::ItemFlags GridModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) {
        return Qt::NoItemFlags;
    }
    const std::int32_t type = content(index).type;
    const bool isTyped = type == CellType::editText || type == CellType::editNumber;
    const Qt::ItemFlags always = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    const bool isEditable = isTyped || opening == index;
    return isEditable && !(locked && isLockable(index)) ? always | Qt::ItemIsEditable : always;
}

void GridModel::describe(QStringList columnTitles) {
    beginResetModel();
    titles = std::move(columnTitles);
    shown.clear();
    outdateAll();
    endResetModel();
}

/// Both lists ascend: what is only in the old one goes, what is only in the new one comes.
void GridModel::showRows(const std::vector<std::int32_t>& gridRows) {
    std::size_t at = 0;
    for (const std::int32_t wanted : gridRows) {
        while (at < shown.size() && shown[at].gridRow < wanted) {
            beginRemoveRows({}, static_cast<int>(at), static_cast<int>(at));
            shown.erase(shown.begin() + static_cast<std::ptrdiff_t>(at));
            endRemoveRows();
        }
        if (at == shown.size() || shown[at].gridRow != wanted) {
            beginInsertRows({}, static_cast<int>(at), static_cast<int>(at));
            shown.insert(shown.begin() + static_cast<std::ptrdiff_t>(at),
                         {wanted, std::vector<Cell>(static_cast<std::size_t>(titles.size()))});
            endInsertRows();
        }
        ++at;
    }
    if (at < shown.size()) {
        beginRemoveRows({}, static_cast<int>(at), static_cast<int>(shown.size()) - 1);
        shown.resize(at);
        endRemoveRows();
    }
}

bool GridModel::put(const QModelIndex& index, CellContent content) {
    Cell& into = cell(index);
    into.asked = round;
    const bool isOther = !(into.content == content);
    into.content = std::move(content);
    return isOther;
}

}  // namespace station
