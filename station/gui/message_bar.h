#pragma once

#include <QFrame>
#include <QLabel>
#include <QString>
#include <QTime>
#include <vector>

namespace station {

/// What the user must know, without holding anything up: the last few texts are shown, with the
/// time of day, and those before in a tool tip, until he has dismissed them or they are settled.
/// One that comes again is counted.
class MessageBar final : public QFrame {
  public:
    MessageBar();

    /// `topic`: what it is about, for `settle`; empty for what only the user settles.
    void report(const QString& message, const QString& topic = {});
    /// What was reported with that topic is no longer so.
    void settle(const QString& topic);
    void dismiss();

  private:
    struct Entry {
        QString text;
        QString topic;
        QTime time;  ///< of the last time
        int times = 1;
    };

    void show();

    QLabel* const label;
    std::vector<Entry> entries;
};

}  // namespace station
