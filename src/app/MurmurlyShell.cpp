#include "app/MurmurlyShell.h"

#include "app/MenuContent.h"
#include "app/MurmurlyApp.h"
#include "app/TrayIcon.h"
#include "core/AppController.h"
#include "core/Log.h"
#include "settings/CleanupTab.h"
#include "settings/GeneralTab.h"
#include "settings/HistoryTab.h"
#include "settings/PermissionsTab.h"
#include "settings/SettingsTab.h"
#include "settings/SettingsWindow.h"
#include "settings/UsageTab.h"
#include "settings/VocabularyTab.h"

#include <QAction>
#include <QMenu>

namespace murmurly {

MurmurlyShell::MurmurlyShell(MurmurlyApp& app, QObject* parent)
    : QObject(parent)
    , m_app(app) {
    AppController& controller = app.controller();
    m_menu = std::make_unique<MenuContent>(controller, controller.usage(), controller.cleanupSettings(),
                                           app.permissions());
    m_tray = std::make_unique<TrayIcon>(controller, m_menu->menu());
    connect(m_menu.get(), &MenuContent::settingsRequested, this, &MurmurlyShell::openSettings);
    connect(&app, &MurmurlyApp::settingsRequested, this, &MurmurlyShell::openSettings);
}

MurmurlyShell::~MurmurlyShell() {
    // The window's tabs observe the controller; they go first.
    m_window.reset();
}

void MurmurlyShell::show() {
    m_tray->show();
    if (TrayIcon::shouldOpenSettingsAtStart()) {
        qCInfo(lcApp, "No system tray on this desktop: opening the settings window");
        openSettings();
    }
}

void MurmurlyShell::openSettings() {
    if (!m_window) {
        AppController& controller = m_app.controller();
        const auto page = [](SettingsTab tab, QWidget* widget) {
            return SettingsPage{SettingsTabs::title(tab), SettingsTabs::icon(tab), widget};
        };
        m_window = std::make_unique<SettingsWindow>(QList<SettingsPage>{
            page(SettingsTab::general, new GeneralTab(controller, m_keyTranslator, m_inputName)),
            page(SettingsTab::cleanup, new CleanupTab(controller, m_app.localModel())),
            page(SettingsTab::vocabulary, new VocabularyTab(controller, m_dialogs)),
            page(SettingsTab::history, new HistoryTab(controller, m_dialogs)),
            page(SettingsTab::usage, new UsageTab(controller.usage())),
            page(SettingsTab::permissions, new PermissionsTab(controller, m_app.permissions())),
        });
        // The menu's shortcuts work only while the menu is open; these make Ctrl+comma and Ctrl+Q
        // work in the window too.
        m_window->addActions({m_menu->settingsAction(), m_menu->quitAction()});
    }
    m_window->showAndRaise();
}

} // namespace murmurly
