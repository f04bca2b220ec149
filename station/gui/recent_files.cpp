#include "station/gui/recent_files.h"

#include <QFileInfo>
#include <QSettings>

namespace station {
namespace {

constexpr const char* key = "recentSetups";

}  // namespace

QStringList RecentFiles::all() const {
    return QSettings().value(key).toStringList();
}

void RecentFiles::add(const QString& path) {
    const QString absolute = QFileInfo(path).absoluteFilePath();
    QStringList files = all();
    files.removeAll(absolute);
    files.prepend(absolute);
    QSettings().setValue(key, files.mid(0, most));
}

void RecentFiles::remove(const QString& path) {
    QStringList files = all();
    files.removeAll(QFileInfo(path).absoluteFilePath());
    QSettings().setValue(key, files);
}

}  // namespace station
