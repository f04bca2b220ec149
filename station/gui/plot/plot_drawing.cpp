#include "station/gui/plot/plot_drawing.h"

#include <algorithm>
#include <cmath>

namespace station {
namespace {

constexpr double largestDrawn = 1e200;

/// Light as people see it, 0 to 1.
double luminance(const QColor& color) {
    const auto linear = [](double part) { return std::pow(part, 2.2); };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
           0.0722 * linear(color.blueF());
}

bool isDistinct(const QColor& color, const QColor& background) {
    constexpr double least = 2.5;  // of the ratio that goes up to 21
    const auto [dark, light] = std::minmax({luminance(color), luminance(background)});
    return (light + 0.05) / (dark + 0.05) >= least;
}

/// Of their values; or of their times, as those have that are in the same extent of a series.
bool haveMuchInCommon(const SignalExtent& before, const SignalExtent& extent) {
    constexpr double much = 0.25;
    const double common = std::min(before.high, extent.high) - std::max(before.low, extent.low);
    return extent.first < before.last || common > much * (extent.high - extent.low);
}

}  // namespace

QColor mixed(const QColor& color, const QColor& other, double share) {
    const auto part = [&](float from, float to) {
        return static_cast<float>(from + (to - from) * share);
    };
    return QColor::fromRgbF(part(color.redF(), other.redF()), part(color.greenF(), other.greenF()),
                            part(color.blueF(), other.blueF()));
}

QColor drawnColor(const QColor& wanted, const QPalette& palette) {
    const QColor background = palette.color(QPalette::Base);
    const QColor away = luminance(background) < 0.2 ? Qt::white : Qt::black;
    QColor color = wanted;
    constexpr double step = 0.1;
    for (double share = step; share < 1 && !isDistinct(color, background); share += step) {
        color = mixed(wanted, away, share);
    }
    return color;
}

void colorAxis(QCPAxis& axis, const QColor& color, const QWidget& widget) {
    const QColor text = widget.palette().color(QPalette::Text);
    const QColor background = widget.palette().color(QPalette::Base);
    for (const auto set : {&QCPAxis::setBasePen, &QCPAxis::setTickPen, &QCPAxis::setSubTickPen}) {
        (axis.*set)(QPen(color));
    }
    axis.setTickLabelColor(color);
    axis.setLabelColor(color);
    axis.setTickLabelFont(widget.font());
    axis.setLabelFont(widget.font());
    axis.grid()->setPen(QPen(mixed(background, text, 0.15)));
    axis.grid()->setZeroLinePen(QPen(mixed(background, text, 0.35)));
}

QImage painted(const QPicture& recorded, QSize window, double scale) {
    QImage image(window * scale, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    painter.scale(scale, scale);
    painter.drawPicture(0, 0, recorded);
    return image;
}

double secondsSince(std::int64_t start, std::int64_t utc) {
    constexpr long double second = 1e9L;
    return static_cast<double>((static_cast<long double>(utc) - start) / second);
}

/// A column is a line between its lowest and highest value that begins with the one that is nearer
/// to the column before. It is upright if the two columns have much in common, so that noise is
/// drawn as a band, and otherwise as slanted as the signal is.
QVector<QCPGraphData> lineOf(const std::vector<SignalExtent>& extents, std::int64_t start) {
    QVector<QCPGraphData> drawn;
    drawn.reserve(2 * static_cast<qsizetype>(extents.size()));
    double previous = 0;
    const SignalExtent* before = nullptr;
    for (const SignalExtent& extent : extents) {
        const double middle = secondsSince(start, extent.first + (extent.last - extent.first) / 2);
        if (!extent.hasValues()) {
            drawn.append(QCPGraphData(middle, qQNaN()));  // a gap
            continue;
        }
        double one = std::clamp(extent.low, -largestDrawn, largestDrawn);
        double other = std::clamp(extent.high, -largestDrawn, largestDrawn);
        if (std::abs(previous - other) < std::abs(previous - one)) {
            std::swap(one, other);
        }
        const bool isUpright = before == nullptr || haveMuchInCommon(*before, extent);
        drawn.append(QCPGraphData(isUpright ? middle : secondsSince(start, extent.first), one));
        if (one != other) {
            drawn.append(
                QCPGraphData(isUpright ? middle : secondsSince(start, extent.last), other));
        }
        before = &extent;
        previous = other;
    }
    return drawn;
}

}  // namespace station
