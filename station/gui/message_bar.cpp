#include "station/gui/message_bar.h"

#include <QHBoxLayout>
#include <QPushButton>
#include <algorithm>

#include "station/terminal_text.h"

namespace station {

MessageBar::MessageBar() : label(new QLabel) {
    setObjectName("messageBar");
    setFrameShape(StyledPanel);
    setAutoFillBackground(true);
    QPalette colors = palette();
    colors.setColor(QPalette::Window, QColor(255, 236, 179));
    colors.setColor(QPalette::WindowText, Qt::black);
    setPalette(colors);
    label->setObjectName("messages");
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* const button = new QPushButton("&Dismiss");
    auto* const layout = new QHBoxLayout(this);
    layout->addWidget(label, 1);
    layout->addWidget(button);
    connect(button, &QPushButton::clicked, this, [this] { dismiss(); });
    hide();
}

void MessageBar::tell(const QString& message) {
    // A name in it can't look like the next message.
    const QString text =
        QString::fromStdString(printableLines(message.toStdString())).replace('\n', ' ');
    constexpr std::size_t most = 4;
    const auto same = std::find_if(entries.begin(), entries.end(),
                                   [&](const Entry& entry) { return entry.text == text; });
    if (same != entries.end()) {
        ++same->times;
    } else {
        entries.push_back({text});
        if (entries.size() > most) {
            entries.erase(entries.begin());
        }
    }
    show();
}

void MessageBar::dismiss() {
    entries.clear();
    show();
}

void MessageBar::show() {
    QStringList lines;
    for (const Entry& entry : entries) {
        lines.append(entry.times == 1 ? entry.text
                                      : QString("%1 (%2 times)").arg(entry.text).arg(entry.times));
    }
    label->setText(lines.join('\n'));
    setVisible(!entries.empty());
}

}  // namespace station
