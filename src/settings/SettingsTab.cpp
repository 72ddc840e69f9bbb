#include "settings/SettingsTab.h"

#include "settings/UiResources.h"

namespace murmurly::SettingsTabs {

QString title(SettingsTab tab) {
    switch (tab) {
    case SettingsTab::general:
        return QStringLiteral("General");
    case SettingsTab::cleanup:
        return QStringLiteral("Cleanup");
    case SettingsTab::vocabulary:
        return QStringLiteral("Vocabulary");
    case SettingsTab::history:
        return QStringLiteral("History");
    case SettingsTab::usage:
        return QStringLiteral("Usage");
    case SettingsTab::permissions:
        return QStringLiteral("Permissions");
    }
    return {};
}

QIcon icon(SettingsTab tab) {
    switch (tab) {
    case SettingsTab::general:
        return UiResources::icon(QStringLiteral("tab-general"));
    case SettingsTab::cleanup:
        return UiResources::icon(QStringLiteral("tab-cleanup"));
    case SettingsTab::vocabulary:
        return UiResources::icon(QStringLiteral("tab-vocabulary"));
    case SettingsTab::history:
        return UiResources::icon(QStringLiteral("tab-history"));
    case SettingsTab::usage:
        return UiResources::icon(QStringLiteral("tab-usage"));
    case SettingsTab::permissions:
        return UiResources::icon(QStringLiteral("tab-permissions"));
    }
    return {};
}

} // namespace murmurly::SettingsTabs
