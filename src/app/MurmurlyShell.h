#pragma once

#include "app/FreedesktopNotifications.h"
#include "platform/linux/PulseInputDeviceName.h"
#include "platform/linux/X11FocusReturn.h"
#include "platform/linux/X11KeyEventTranslator.h"
#include "settings/QtFileDialogs.h"

#include <QObject>

#include <memory>

namespace murmurly {

class GeneralTab;
class PermissionsTab;
class MenuContent;
class MurmurlyApp;
class SettingsWindow;
class TrayIcon;
class TraylessNotices;

// What the user sees of the running program: the tray icon with its menu, the settings window,
// built the first time it is asked for and kept from then on, and on a desktop without a tray the
// notifications that stand in for the menu. Main thread only.
class MurmurlyShell : public QObject {
    Q_OBJECT

public:
    explicit MurmurlyShell(MurmurlyApp& app, QObject* parent = nullptr);
    ~MurmurlyShell() override;

    enum class StartedBy { user, login };

    // Shows the tray icon. On a desktop without a tray, a start by the user opens the settings
    // window instead, so the program is never left without a surface; a start by the login opens
    // nothing (the first-start notification says the program runs).
    void show(StartedBy startedBy = StartedBy::user);

    // Opens the settings window (building it on first use), raises it and gives it the focus.
    void openSettings();

    SettingsWindow* settingsWindow() const { return m_window.get(); }

private:
    MurmurlyApp& m_app;
    X11KeyEventTranslator m_keyTranslator;
    PulseInputDeviceName m_inputName;
    QtFileDialogs m_dialogs;
    // The window the user worked in before the settings window, for the History tab's
    // "Re-insert".
    X11FocusReturn m_focusReturn;
    FreedesktopNotifications m_notifications;
    std::unique_ptr<MenuContent> m_menu;
    std::unique_ptr<TrayIcon> m_tray;
    std::unique_ptr<TraylessNotices> m_notices;
    std::unique_ptr<SettingsWindow> m_window;
    GeneralTab* m_generalTab = nullptr;         // owned by the window
    PermissionsTab* m_permissionsTab = nullptr; // owned by the window
};

} // namespace murmurly
