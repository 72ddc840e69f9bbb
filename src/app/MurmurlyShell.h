#pragma once

#include "platform/linux/PulseInputDeviceName.h"
#include "platform/linux/X11FocusReturn.h"
#include "platform/linux/X11KeyEventTranslator.h"
#include "settings/QtFileDialogs.h"

#include <QObject>

#include <memory>

namespace murmurly {

class MenuContent;
class MurmurlyApp;
class SettingsWindow;
class TrayIcon;

// What the user sees of the running program: the tray icon with its menu, and the settings window,
// built the first time it is asked for and kept from then on. Main thread only.
class MurmurlyShell : public QObject {
    Q_OBJECT

public:
    explicit MurmurlyShell(MurmurlyApp& app, QObject* parent = nullptr);
    ~MurmurlyShell() override;

    // Shows the tray icon; on a desktop without a tray, opens the settings window instead so the
    // program is never left without a surface.
    void show();

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
    std::unique_ptr<MenuContent> m_menu;
    std::unique_ptr<TrayIcon> m_tray;
    std::unique_ptr<SettingsWindow> m_window;
};

} // namespace murmurly
