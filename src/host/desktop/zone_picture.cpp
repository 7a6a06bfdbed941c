// The footprint as a picture.
#include <QFontInfo>
#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <QtMath>
#include <cmath>

#include "host/desktop/threat_zone.h"
#include "host/screen_report.h"

namespace host::desktop {

namespace {

constexpr double kMargin = 24;
constexpr double kFootHeight = 54;  // scale bar and its words

QString text(const std::string& utf8) {
    return QString::fromStdString(utf8);
}

// 1, 2 or 5 times a power of ten, at most `most`.
double niceLength(double most) {
    const double power = std::pow(10, std::floor(std::log10(most)));
    for (const double step : {5.0, 2.0}) {
        if (step * power <= most) {
            return step * power;
        }
    }
    return power;
}

// An arrow to where the wind blows, of this length, around a point.
void drawArrow(QPainter& painter, const QPointF& middle, double bearing, double length) {
    painter.save();
    painter.translate(middle);
    painter.rotate(bearing);
    const double half = length / 2;
    painter.drawLine(QPointF(0, half), QPointF(0, -half));
    painter.drawLine(QPointF(0, -half), QPointF(-5, -half + 9));
    painter.drawLine(QPointF(0, -half), QPointF(5, -half + 9));
    painter.restore();
}

}  // namespace

ZoneColours paperColours() {
    return {Qt::white,
            QColor(0x20, 0x20, 0x20),
            QColor(0x70, 0x70, 0x70),
            QColor(0xf3, 0x9c, 0x3c, 0x70),
            QColor(0xb8, 0x4a, 0x00),
            QColor(0x1f, 0x5f, 0xbf)};
}

void drawZone(QPainter& painter, const QRectF& area, const Scenario& scenario, const ScreeningResult& result,
              const ZoneColours& colours) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(area, colours.paper);
    QRectF room = area.adjusted(kMargin, kMargin / 2, -kMargin, -kMargin / 2);
    const QFont plain = painter.font();
    QFont bold = plain;
    bold.setBold(true);
    bold.setPixelSize(qRound(QFontInfo(plain).pixelSize() * 1.25));
    const auto line = [&](const QFont& font, const QColor& colour, const QString& words) {
        painter.setFont(font);
        painter.setPen(colour);
        const QRectF need =
            painter.boundingRect(QRectF(room.left(), room.top(), room.width(), 400), Qt::TextWordWrap, words);
        painter.drawText(need, Qt::TextWordWrap, words);
        room.setTop(need.bottom() + 3);
    };
    if (result.rejection || !result.footprint) {
        line(plain, colours.faint, "Describe a release, and its threat zone appears here.");
        painter.restore();
        return;
    }
    line(bold, colours.ink, text(titleOf(scenario)) + ": " + text(distanceText(scenario, result)));
    line(plain, colours.faint, text(releaseText(scenario)));
    for (const std::string& note : screeningNotes(scenario, result)) {
        line(plain, colours.faint, text(note));
    }
    painter.setFont(plain);

    // The outline in metres, east and south of the source.
    const Footprint& footprint = *result.footprint;
    const double from = scenario.windFrom ? scenario.windFrom->value : 270;
    const double bearing = std::fmod(from + 180, 360);
    const double angle = qDegreesToRadians(bearing);
    const auto place = [&](double downwind, double right) {
        return QPointF(downwind * std::sin(angle) + right * std::cos(angle),
                       -downwind * std::cos(angle) + right * std::sin(angle));
    };
    QPolygonF outline{QPointF(0, 0)};
    for (const FootprintPoint& point : footprint.points) {
        outline << place(point.downwind, point.halfWidth);
    }
    for (auto point = footprint.points.rbegin(); point != footprint.points.rend(); ++point) {
        outline << place(point->downwind, -point->halfWidth);
    }
    QRectF bounds = outline.boundingRect();
    const double least = footprint.distance * 0.15;  // a narrow one does not fill the picture
    if (bounds.width() < least) {
        bounds.adjust(-least / 2, 0, least / 2, 0);
    }
    if (bounds.height() < least) {
        bounds.adjust(0, -least / 2, 0, least / 2);
    }
    const QRectF map = room.adjusted(70, 24, -70, -kFootHeight - 12);
    if (map.width() < 40 || map.height() < 40) {
        painter.restore();
        return;
    }
    const double scale = std::min(map.width() / bounds.width(), map.height() / bounds.height());
    const auto onPaper = [&](const QPointF& metres) { return map.center() + (metres - bounds.center()) * scale; };
    QPolygonF drawn;
    for (const QPointF& point : outline) {
        drawn << onPaper(point);
    }
    painter.setPen(QPen(colours.edge, 1.5));
    painter.setBrush(colours.zone);
    painter.drawPolygon(drawn);
    painter.setPen(QPen(colours.edge, 1, Qt::DashLine));
    painter.drawLine(onPaper({0, 0}), onPaper(place(footprint.distance, 0)));
    const QFontMetricsF metrics(plain);
    const auto words = [&](const QPointF& at, const QString& said) {  // beside a point, inside the picture
        QRectF box(at.x() + 8, at.y() - metrics.height() - 2, metrics.horizontalAdvance(said), metrics.height());
        if (box.right() > room.right()) {
            box.moveRight(at.x() - 8);
        }
        box.moveLeft(std::max(box.left(), room.left()));
        painter.setPen(colours.ink);
        painter.drawText(box, said);
    };
    painter.setPen(QPen(colours.ink, 1));
    painter.setBrush(colours.ink);
    painter.drawEllipse(onPaper({0, 0}), 4, 4);
    words(onPaper({0, 0}) + QPointF(0, metrics.height() + 6), "Source");
    words(onPaper(place(footprint.distance, 0)), text(distanceText(scenario, result)));

    // Scale and wind.
    const double perUnit = metersPerUnit(scenario);
    const QString unit = perUnit > 1600 ? "mi" : "km";
    double length = niceLength(map.width() * 0.4 / scale / perUnit);
    const double foot = room.bottom() - metrics.descent() - 4;
    const QPointF left(room.left(), foot - metrics.height() - 4);
    const double bar = length * perUnit * scale;
    painter.setPen(QPen(colours.ink, 2));
    painter.drawLine(left, left + QPointF(bar, 0));
    for (const double end : {0.0, bar / 2, bar}) {
        painter.drawLine(left + QPointF(end, -5), left + QPointF(end, 0));
    }
    painter.setPen(colours.ink);
    painter.drawText(QPointF(left.x(), foot), QString("0 to %1 %2").arg(length).arg(unit));
    const QString wind = scenario.windFrom ? "Wind from " + text(windFromText(*scenario.windFrom)) + ", north is up"
                                           : QString("Wind; where it comes from is not given");
    const double windWidth = metrics.horizontalAdvance(wind);
    painter.drawText(QPointF(room.right() - windWidth, foot), wind);
    painter.setPen(QPen(colours.accent, 2));
    drawArrow(painter, QPointF(room.right() - windWidth / 2, left.y() - 12), bearing, 34);
    painter.restore();
}

}  // namespace host::desktop
