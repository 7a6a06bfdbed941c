// How the windows look, and work for the event loop.
#include <QApplication>
#include <QPalette>
#include <QSettings>
#include <QStyle>
#include <QTimer>
#include <algorithm>
#include <utility>

#include "host/desktop/desk.h"
#include "host/desktop/later.h"

namespace host::desktop {

static QPalette darkPalette() {
    const QColor window(0x2b, 0x2d, 0x30);
    const QColor base(0x1e, 0x1f, 0x22);
    const QColor text(0xe6, 0xe6, 0xe6);
    const QColor faint(0x8a, 0x8d, 0x92);
    const QColor accent(0x4c, 0x8d, 0xf0);
    QPalette palette(window);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, QColor(0x25, 0x27, 0x2a));
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, QColor(0x3a, 0x3d, 0x41));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::ToolTipBase, base);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, faint);
    palette.setColor(QPalette::Highlight, accent);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, accent);
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        palette.setColor(QPalette::Disabled, role, faint);
    }
    return palette;
}

void setAppearance(Appearance wanted) {
    static const QString sOwnStyle = QApplication::style()->objectName();
    QSettings().setValue("appearance", static_cast<int>(wanted));
    const QString style = wanted == Appearance::system ? sOwnStyle : "fusion";
    QApplication::setStyle(style);
    switch (wanted) {
        case Appearance::system:
            QApplication::setPalette(QPalette());
            break;
        case Appearance::light:
            QApplication::setPalette(QPalette(QColor(0xef, 0xef, 0xef), QColor(0xef, 0xef, 0xef)));
            break;
        case Appearance::dark:
            QApplication::setPalette(darkPalette());
            break;
    }
}

Appearance appearance() {
    return static_cast<Appearance>(std::clamp(QSettings().value("appearance", 0).toInt(), 0, 2));
}

void later(QObject* context, std::function<void()> job) {
    auto* timer = new QTimer(context);
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, context, [timer, job = std::move(job)] {
        timer->deleteLater();
        job();
    });
    timer->start(0);
}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): its context owns it

}  // namespace host::desktop
