#include "settings/NoteLabel.h"

#include "settings/SettingsText.h"

namespace murmurly {

NoteLabel::NoteLabel(const QString& text, QWidget* parent)
    : QLabel(text, parent) {
    setTextFormat(Qt::PlainText);
    setTextInteractionFlags(Qt::TextSelectableByMouse);
    // The same caption style as the help texts of the other tabs.
    SettingsText::makeCaption(this);
    SettingsText::makeSecondary(this);
}

QColor NoteLabel::secondaryColor(const QPalette& palette) {
    return palette.color(QPalette::PlaceholderText);
}

} // namespace murmurly
