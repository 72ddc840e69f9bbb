#include "app/MurmurlyShell.h"

#include "app/MenuContent.h"
#include "app/MurmurlyApp.h"
#include "app/PortalKeyEventSource.h"
#include "app/RemoteDesktopPasteKeys.h"
#include "app/TrayIcon.h"
#include "app/TraylessNotices.h"
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
#include <QDBusConnection>
#include <QMenu>
#include <QTimer>

namespace murmurly {

namespace {

constexpr std::chrono::milliseconds focusSettleDelay{100};

PermissionsTab::ServiceRow serviceRow(const SessionServices::Description& description) {
    return {description.title, description.detail, description.working};
}

} // namespace

MurmurlyShell::MurmurlyShell(MurmurlyApp& app, QObject* parent)
    : QObject(parent)
    , m_app(app)
    , m_focusReturn(app.clock())
    , m_notifications(QDBusConnection::sessionBus()) {
    AppController& controller = app.controller();
    m_menu = std::make_unique<MenuContent>(controller, controller.usage(), controller.cleanupSettings());
    m_tray = std::make_unique<TrayIcon>(controller, m_menu->menu());
    m_notices =
        std::make_unique<TraylessNotices>(controller, m_notifications, &TrayIcon::isShownOnThisDesktop);
    m_notifications.onActivated = [this] { openSettings(); };
    connect(m_menu.get(), &MenuContent::settingsRequested, this, &MurmurlyShell::openSettings);
    connect(&app, &MurmurlyApp::settingsRequested, this, &MurmurlyShell::openSettings);
}

MurmurlyShell::~MurmurlyShell() {
    // The window's tabs observe the controller; they go first.
    m_window.reset();
}

void MurmurlyShell::show(StartedBy startedBy) {
    m_tray->show();
    m_notices->programStarted();
    if (!TrayIcon::shouldOpenSettingsAtStart()) return;
    if (startedBy == StartedBy::login) {
        qCInfo(lcApp, "No system tray on this desktop; started at login, so no window opens");
        return;
    }
    qCInfo(lcApp, "No system tray on this desktop: opening the settings window");
    openSettings();
}

void MurmurlyShell::openSettings() {
    if (!m_window) {
        AppController& controller = m_app.controller();
        const auto page = [](SettingsTab tab, QWidget* widget) {
            return SettingsPage{SettingsTabs::title(tab), SettingsTabs::icon(tab), widget};
        };
        m_window = std::make_unique<SettingsWindow>(QList<SettingsPage>{
            page(SettingsTab::general,
                 m_generalTab = new GeneralTab(controller, m_keyTranslator, m_inputName)),
            page(SettingsTab::cleanup, new CleanupTab(controller, m_app.localModel())),
            page(SettingsTab::vocabulary, new VocabularyTab(controller, m_dialogs)),
            page(SettingsTab::history, new HistoryTab(controller, m_dialogs, m_focusReturn)),
            page(SettingsTab::usage, new UsageTab(controller.usage())),
            page(SettingsTab::permissions,
                 m_permissionsTab = new PermissionsTab(
                     controller, {serviceRow(m_app.session().keyReadingDescription()),
                                  serviceRow(m_app.session().textInsertionDescription())})),
        });
        const auto showTriggerNote = [this] { m_generalTab->setTriggerNote(m_app.session().triggerNote()); };
        showTriggerNote();
        connect(&controller, &AppController::hotkeyBindingChanged, m_generalTab, showTriggerNote);
        if (PortalKeyEventSource* portal = m_app.session().shortcutsPortal()) {
            connect(portal, &PortalKeyEventSource::changed, m_generalTab, showTriggerNote);
            // The desktop's answer to the shortcut (bound, refused, ended) shows in its row too.
            connect(portal, &PortalKeyEventSource::changed, m_permissionsTab, [this] {
                m_permissionsTab->setServiceRow(0, serviceRow(m_app.session().keyReadingDescription()));
            });
        }
        if (RemoteDesktopPasteKeys* remoteDesktop = m_app.session().remoteDesktop()) {
            connect(remoteDesktop, &RemoteDesktopPasteKeys::stateChanged, m_permissionsTab, [this] {
                m_permissionsTab->setServiceRow(1, serviceRow(m_app.session().textInsertionDescription()));
            });
        }
        // The menu's shortcuts work only while the menu is open; these make Ctrl+comma and Ctrl+Q
        // work in the window too.
        m_window->addActions({m_menu->settingsAction(), m_menu->quitAction()});
        // Where the user goes from the settings window is where they will want a re-inserted
        // text. The window manager may move the focus a moment after the window learns of it.
        connect(m_window.get(), &SettingsWindow::deactivated, this, [this] {
            QTimer::singleShot(focusSettleDelay, this, [this] { m_focusReturn.rememberFocusedWindow(); });
        });
    }
    // A panel may have come (or gone) since the window was last shown.
    m_generalTab->setNoTrayNoteShown(!TrayIcon::isShownOnThisDesktop());
    // Noted before the window takes the focus; the program's own windows are never noted.
    m_focusReturn.rememberFocusedWindow();
    m_window->showAndRaise();
}

} // namespace murmurly
