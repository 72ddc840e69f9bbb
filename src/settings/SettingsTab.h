#pragma once

#include <QIcon>
#include <QString>

#include <array>

namespace murmurly {

// The settings window's tabs, in sidebar order.
enum class SettingsTab { general, cleanup, vocabulary, history, usage, permissions };

namespace SettingsTabs {

inline constexpr std::array<SettingsTab, 6> allCases{SettingsTab::general,    SettingsTab::cleanup,
                                                     SettingsTab::vocabulary, SettingsTab::history,
                                                     SettingsTab::usage,      SettingsTab::permissions};

// "General", "Cleanup", …: the sidebar's text and the page's title.
QString title(SettingsTab tab);
// The sidebar icon, drawn for the window's light background.
QIcon icon(SettingsTab tab);

} // namespace SettingsTabs

} // namespace murmurly
