#include "settings/SettingsText.h"

#include <QLabel>

namespace murmurly::SettingsText {

void makeCaption(QLabel* label) {
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.88);
    label->setFont(font);
    label->setWordWrap(true);
}

void makeSecondary(QLabel* label) {
    label->setForegroundRole(QPalette::PlaceholderText);
}

void makeHeadline(QLabel* label) {
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
}

} // namespace murmurly::SettingsText
