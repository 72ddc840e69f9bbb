#pragma once

#include <QSize>

class QFormLayout;

namespace murmurly::SettingsLayout {

// The settings window's fixed measures, shared by the window and its tabs.
inline constexpr int sidebarWidth = 180;
inline constexpr QSize minimumWindowSize{620, 420};
// Space between groups of a tab, and around a tab's content.
inline constexpr int sectionSpacing = 18;
inline constexpr int contentMargin = 20;

// Labels right-aligned beside their fields, fields growing to the width of the tab, rows spaced
// alike in every tab.
void applyFormStyle(QFormLayout* layout);

} // namespace murmurly::SettingsLayout
