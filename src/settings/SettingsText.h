#pragma once

class QLabel;

namespace murmurly::SettingsText {

// The text styles of the settings tabs: a smaller caption for help and notes, a dimmer colour for
// secondary text, a bold headline for a row's title.
void makeCaption(QLabel* label);
void makeSecondary(QLabel* label);
void makeHeadline(QLabel* label);

} // namespace murmurly::SettingsText
