#include "settings/SettingsText.h"

#include <QLabel>

namespace murmurly::SettingsText {

namespace {

constexpr QPalette::ColorRole secondaryRole = QPalette::PlaceholderText;

} // namespace

void makeCaption(QLabel* label) {
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.88);
    label->setFont(font);
    label->setWordWrap(true);
}

void makeSecondary(QLabel* label) {
    label->setForegroundRole(secondaryRole);
}

void makeHeadline(QLabel* label) {
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
}

QLabel* note(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setTextFormat(Qt::PlainText);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    makeCaption(label);
    makeSecondary(label);
    return label;
}

QColor secondaryColor(const QPalette& palette) {
    return palette.color(secondaryRole);
}

} // namespace murmurly::SettingsText
