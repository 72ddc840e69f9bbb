#include "settings/UiResources.h"

#include <QFile>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

// Resources of a static library are registered by an explicit call; it must name the resource
// outside any namespace.
static void registerUiResources() {
    Q_INIT_RESOURCE(murmurly_ui);
}

namespace murmurly::UiResources {

namespace {

void ensureRegistered() {
    static const bool registered = [] {
        registerUiResources();
        return true;
    }();
    Q_UNUSED(registered);
}

constexpr int iconSizes[] = {16, 20, 22, 24, 32, 48, 64};

} // namespace

QString svgPath(const QString& name) {
    ensureRegistered();
    return QStringLiteral(":/murmurly/icons/") + name + QStringLiteral(".svg");
}

QImage render(const QString& name, int pixels, qreal opacity) {
    QSvgRenderer renderer(svgPath(name));
    if (!renderer.isValid()) return {};
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setOpacity(opacity);
    renderer.render(&painter, QRectF(0, 0, pixels, pixels));
    return image;
}

QIcon icon(const QString& name, qreal opacity) {
    QIcon result;
    for (const int pixels : iconSizes) {
        const QImage image = render(name, pixels, opacity);
        if (image.isNull()) return {};
        result.addPixmap(QPixmap::fromImage(image));
    }
    return result;
}

} // namespace murmurly::UiResources
