#pragma once

#include <QDir>
#include <QImage>
#include <QString>
#include <QTest>
#include <QWidget>

namespace murmurly::testing {

// A settings tab as the window shows it at its smallest: the window's minimum size less the
// sidebar.
inline constexpr QSize tabAreaSize{620 - 180, 420};

// Shows `tab` at the tab area's size, waits until it is on screen, and saves what it draws as
// `name`.png in the screenshot folder. Returns the saved file's path, or empty on failure.
inline QString saveTabScreenshot(QWidget& tab, const QString& name) {
    tab.resize(tabAreaSize);
    tab.show();
    if (!QTest::qWaitForWindowExposed(&tab)) return {};
    QTest::qWait(50);
    const QString folder = QStringLiteral(MURMURLY_SCREENSHOT_DIR);
    QDir().mkpath(folder);
    const QString path = folder + QLatin1Char('/') + name + QStringLiteral(".png");
    return tab.grab().save(path) ? path : QString();
}

// Whether the picture shows something drawn inside `area` (the geometry of a widget of the tab):
// more than one colour there, as text or a frame makes, rather than bare background.
inline bool picturesSomethingIn(const QString& picturePath, const QRect& area) {
    const QImage image(picturePath);
    const QRect inside = area.intersected(image.rect());
    if (inside.isEmpty()) return false;
    const QRgb first = image.pixel(inside.topLeft());
    for (int y = inside.top(); y <= inside.bottom(); ++y)
        for (int x = inside.left(); x <= inside.right(); ++x)
            if (image.pixel(x, y) != first) return true;
    return false;
}

// Where `widget` lies in a picture of `tab`.
inline QRect areaIn(const QWidget& tab, const QWidget& widget) {
    return QRect(widget.mapTo(&tab, QPoint(0, 0)), widget.size());
}

} // namespace murmurly::testing
