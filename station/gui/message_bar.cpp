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
    label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);  // a path may be long
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* const button = new QPushButton("&Dismiss");
    auto* const layout = new QHBoxLayout(this);
    layout->addWidget(label, 1);
    layout->addWidget(button);
    connect(button, &QPushButton::clicked, this, [this] { dismiss(); });
    hide();
}

void MessageBar::report(const QString& message, const QString& topic) {
    // A name in it can't look like the next message.
    const QString text =
        QString::fromStdString(printableLines(message.toStdString())).replace('\n', ' ');
    constexpr std::size_t most = 100;
    const auto same = std::find_if(entries.begin(), entries.end(),
                                   [&](const Entry& entry) { return entry.text == text; });
    if (same != entries.end()) {
        ++same->times;
        same->time = QTime::currentTime();
    } else {
        entries.push_back({text, topic, QTime::currentTime()});
        if (entries.size() > most) {
            entries.erase(entries.begin());
        }
    }
    show();
}

void MessageBar::settle(const QString& topic) {
    std::erase_if(entries, [&](const Entry& entry) { return entry.topic == topic; });
    show();
}

void MessageBar::dismiss() {
    entries.clear();
    show();
}

void MessageBar::show() {
    QStringList lines;
    for (const Entry& entry : entries) {
        const QString times =
            entry.times == 1 ? QString() : QString(" (%1 times)").arg(entry.times);
        lines.append(entry.time.toString("HH:mm:ss  ") + entry.text + times);
    }
    constexpr int mostShown = 4;
    const auto hidden = std::max<qsizetype>(lines.size() - mostShown, 0);
    label->setToolTip(lines.join('\n').toHtmlEscaped().replace('\n', "<br>"));
    lines = lines.mid(hidden);
    if (hidden > 0) {
        lines.prepend(QString("(%1 earlier ones: point here to read them)").arg(hidden));
    }
    label->setText(lines.join('\n'));
    setVisible(!entries.empty());
}

}  // namespace station
