#pragma once

#include <QFrame>
#include <QLabel>
#include <QString>
#include <vector>

namespace station {

/// What the user must know, without holding anything up: the last few texts are shown until
/// he has dismissed them. One that comes again is counted.
class MessageBar final : public QFrame {
  public:
    MessageBar();

    void tell(const QString& message);
    void dismiss();

  private:
    struct Entry {
        QString text;
        int times = 1;
    };

    void show();

    QLabel* const label;
    std::vector<Entry> entries;
};

}  // namespace station
