#include "settings/HistoryEntryDelegate.h"

#include "settings/SettingsText.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QPainter>
#include <QTextLayout>

namespace murmurly {

namespace {

constexpr int horizontalPadding = 8;
constexpr int verticalPadding = 6;
constexpr int headerGap = 2;

} // namespace

QFont HistoryEntryDelegate::headerFont(const QFont& font) {
    QFont smaller = font;
    if (smaller.pointSizeF() > 0) smaller.setPointSizeF(smaller.pointSizeF() - 1);
    return smaller;
}

int HistoryEntryDelegate::textWidth(const QStyleOptionViewItem& option) {
    // Rows are as wide as the list's viewport; the option's own rectangle is not yet laid out
    // when the list asks for a size.
    int width = option.rect.width();
    if (const auto* view = qobject_cast<const QAbstractItemView*>(option.widget))
        width = view->viewport()->width();
    return std::max(40, width - 2 * horizontalPadding);
}

QStringList HistoryEntryDelegate::textLines(const QString& text, const QFont& font, int width) {
    QString flat = text;
    flat.replace(QLatin1Char('\n'), QChar::LineSeparator);
    QTextLayout layout(flat, font);
    QTextOption wrapping;
    wrapping.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(wrapping);
    layout.beginLayout();
    QStringList lines;
    const QFontMetrics metrics(font);
    while (true) {
        QTextLine line = layout.createLine();
        if (!line.isValid()) break;
        line.setLineWidth(width);
        if (lines.size() == maximumTextLines - 1) {
            // The last line shown holds the rest of the text, cut with an ellipsis.
            QString rest = flat.mid(line.textStart());
            rest.replace(QChar::LineSeparator, QLatin1Char(' '));
            lines << metrics.elidedText(rest, Qt::ElideRight, width);
            break;
        }
        QString part = flat.mid(line.textStart(), line.textLength());
        part.remove(QChar::LineSeparator);
        lines << part.trimmed();
    }
    layout.endLayout();
    if (lines.isEmpty()) lines << QString();
    return lines;
}

QSize HistoryEntryDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    const int width = textWidth(option);
    const QFont header = headerFont(option.font);
    const int lines = int(textLines(index.data(Qt::DisplayRole).toString(), option.font, width).size());
    const int height = verticalPadding * 2 + QFontMetrics(header).height() + headerGap +
                       lines * QFontMetrics(option.font).lineSpacing();
    return {width + 2 * horizontalPadding, height};
}

void HistoryEntryDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                                 const QModelIndex& index) const {
    QStyleOptionViewItem panel = option;
    initStyleOption(&panel, index);
    panel.text.clear();
    const QStyle* style = panel.widget ? panel.widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &panel, painter, panel.widget);

    const bool selected = option.state & QStyle::State_Selected;
    const QPalette& palette = option.palette;
    const QColor textColor = palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
    const QColor headerColor = selected ? textColor : SettingsText::secondaryColor(palette);
    const int width = option.rect.width() - 2 * horizontalPadding;
    const QFont header = headerFont(option.font);
    const QFontMetrics headerMetrics(header);
    const QFontMetrics textMetrics(option.font);

    painter->save();
    int y = option.rect.top() + verticalPadding;
    const int x = option.rect.left() + horizontalPadding;
    painter->setFont(header);
    painter->setPen(headerColor);
    painter->drawText(QRect(x, y, width, headerMetrics.height()), Qt::AlignLeft | Qt::AlignVCenter,
                      headerMetrics.elidedText(index.data(headerRole).toString(), Qt::ElideRight, width));
    y += headerMetrics.height() + headerGap;
    painter->setFont(option.font);
    painter->setPen(textColor);
    for (const QString& line : textLines(index.data(Qt::DisplayRole).toString(), option.font, width)) {
        painter->drawText(QRect(x, y, width, textMetrics.lineSpacing()), Qt::AlignLeft | Qt::AlignVCenter,
                          line);
        y += textMetrics.lineSpacing();
    }
    painter->restore();
}

} // namespace murmurly
