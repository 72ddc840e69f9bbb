#pragma once

#include <QColor>

class QLabel;
class QPalette;
class QString;
class QWidget;

namespace murmurly::SettingsText {

// The text styles of the settings tabs: a smaller caption for help and notes, a dimmer colour for
// secondary text, a bold headline for a row's title.
void makeCaption(QLabel* label);
void makeSecondary(QLabel* label);
void makeHeadline(QLabel* label);

// An explanatory text under a control: plain, selectable, wrapped to the width of its column, in
// the caption style and the secondary colour.
QLabel* note(const QString& text, QWidget* parent = nullptr);

// The secondary text colour of `palette`, for text drawn without a label.
QColor secondaryColor(const QPalette& palette);

} // namespace murmurly::SettingsText
