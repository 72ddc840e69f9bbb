#include "settings/StatusLabel.h"

#include "settings/SettingsText.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>

namespace murmurly {

namespace {

// The symbol for `kind`, `size` device-independent pixels square, for a screen of `ratio`.
QPixmap symbol(StatusLabel::Kind kind, const QColor& color, int size, qreal ratio) {
    QPixmap pixmap(QSize(size, size) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal s = size;
    if (kind == StatusLabel::Kind::key) {
        // A ring for the bow, a shaft to the right, two teeth hanging from it.
        QPainterPath path;
        path.addEllipse(QPointF(s * 0.3, s * 0.5), s * 0.24, s * 0.24);
        path.addRect(QRectF(s * 0.45, s * 0.43, s * 0.5, s * 0.14));
        path.addRect(QRectF(s * 0.72, s * 0.5, s * 0.09, s * 0.22));
        path.addRect(QRectF(s * 0.86, s * 0.5, s * 0.09, s * 0.17));
        path.setFillRule(Qt::WindingFill);
        painter.fillPath(path, color);
        painter.setCompositionMode(QPainter::CompositionMode_Clear);
        painter.setBrush(Qt::black);
        painter.setPen(Qt::NoPen);
        painter.drawEllipse(QPointF(s * 0.25, s * 0.5), s * 0.08, s * 0.08);
        return pixmap;
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawEllipse(QRectF(0.5, 0.5, s - 1, s - 1));
    QPen mark(Qt::white, s * 0.13, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(mark);
    painter.setBrush(Qt::NoBrush);
    switch (kind) {
    case StatusLabel::Kind::success:
        painter.drawPolyline(QPolygonF{{s * 0.28, s * 0.52}, {s * 0.44, s * 0.68}, {s * 0.73, s * 0.36}});
        break;
    case StatusLabel::Kind::failure:
        painter.drawLine(QPointF(s * 0.33, s * 0.33), QPointF(s * 0.67, s * 0.67));
        painter.drawLine(QPointF(s * 0.67, s * 0.33), QPointF(s * 0.33, s * 0.67));
        break;
    case StatusLabel::Kind::warning:
        painter.drawLine(QPointF(s * 0.5, s * 0.25), QPointF(s * 0.5, s * 0.56));
        painter.drawPoint(QPointF(s * 0.5, s * 0.74));
        break;
    case StatusLabel::Kind::key:
        break;
    }
    return pixmap;
}

} // namespace

StatusLabel::StatusLabel(QWidget* parent)
    : StatusLabel(Kind::success, QString(), parent) {
}

StatusLabel::StatusLabel(Kind kind, const QString& text, QWidget* parent)
    : QWidget(parent)
    , m_icon(new QLabel(this))
    , m_text(new QLabel(text, this))
    , m_kind(kind) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    layout->addWidget(m_icon, 0, Qt::AlignTop);
    layout->addWidget(m_text, 1);
    m_text->setWordWrap(true);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_icon->setAccessibleName(QString());
    redraw();
}

void StatusLabel::setStatus(Kind kind, const QString& text) {
    m_kind = kind;
    m_text->setText(text);
    redraw();
}

QString StatusLabel::text() const {
    return m_text->text();
}

QColor StatusLabel::colorFor(Kind kind, const QPalette& palette) {
    switch (kind) {
    case Kind::success:
        return QColor(0x1e, 0x8e, 0x3e);
    case Kind::failure:
        return QColor(0xd0, 0x30, 0x2f);
    case Kind::warning:
        return QColor(0xb2, 0x6a, 0x00);
    case Kind::key:
        return SettingsText::secondaryColor(palette);
    }
    return palette.color(QPalette::WindowText);
}

void StatusLabel::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange) redraw();
}

void StatusLabel::redraw() {
    const QColor color = colorFor(m_kind, palette());
    QPalette textPalette = m_text->palette();
    textPalette.setColor(QPalette::WindowText, color);
    m_text->setPalette(textPalette);
    // The symbol is as tall as a line of text, and sits centred on the first line.
    const int size = QFontMetrics(m_text->font()).height() - 2;
    m_icon->setPixmap(symbol(m_kind, color, size, devicePixelRatioF()));
    m_icon->setFixedSize(size, size + 2);
    m_icon->setAlignment(Qt::AlignCenter);
    setAccessibleName(m_text->text());
}

} // namespace murmurly
