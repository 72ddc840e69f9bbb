#pragma once

#include <QStyledItemDelegate>

namespace murmurly {

// Draws one history entry as two parts: a header line (date, provider, application) in a smaller
// font and the secondary colour, and below it the entry's text, wrapped and cut to three lines.
class HistoryEntryDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    // The header line of the row, as a string.
    static constexpr int headerRole = Qt::UserRole + 1;
    static constexpr int maximumTextLines = 3;

    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

    // The lines `text` takes at `width` in `font`, at most maximumTextLines, the last one ending
    // in an ellipsis when the text goes on.
    static QStringList textLines(const QString& text, const QFont& font, int width);

private:
    static QFont headerFont(const QFont& font);
    static int textWidth(const QStyleOptionViewItem& option);
};

} // namespace murmurly
