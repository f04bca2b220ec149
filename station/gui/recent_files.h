#pragma once

#include <QStringList>

namespace station {

/// The setups that the user had open lately, latest first, kept in his settings.
class RecentFiles {
  public:
    static constexpr int most = 8;

    QStringList all() const;
    void add(const QString& path);
    void remove(const QString& path);
};

}  // namespace station
