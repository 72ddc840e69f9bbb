#pragma once

#include "app/HostPortalRegistration.h"
#include "app/SessionServices.h"
#include "cleanup/LocalModelServer.h"
#include "core/SystemClock.h"
#include "platform/linux/IniDefaults.h"
#include "platform/linux/LibsecretStore.h"
#include "platform/linux/LinuxPermissions.h"
#include "platform/linux/PocketsphinxBackend.h"
#include "platform/linux/PulseCaptureDevice.h"
#include "platform/linux/X11ActiveApplication.h"
#include "platform/linux/X11KeyState.h"
#include "platform/linux/XdgAutostartLoginItem.h"

#include <QNetworkAccessManager>
#include <QObject>

#include <memory>

namespace murmurly {

class AppController;

// The running program: the desktop's services and the one dictation controller that uses them,
// built in dependency order and kept for the life of the process. Needs a QGuiApplication (the
// clipboard) and an X display or a Wayland compositor; the session's services are chosen by
// SessionServices. Main thread only.
class MurmurlyApp : public QObject {
    Q_OBJECT

public:
    explicit MurmurlyApp(QObject* parent = nullptr);
    ~MurmurlyApp() override;

    AppController& controller() { return *m_controller; }
    Permissions& permissions() { return m_permissions; }
    const SessionServices& session() const { return m_session; }
    LocalModelServer& localModel() { return m_localModel; }
    Clock& clock() { return m_clock; }

public slots:
    // Asks for the settings window (from the tray, a second launch, or remote control).
    void openSettings();

signals:
    void settingsRequested();

private:
    // Declaration order is construction order; the controller, built last, goes first.
    IniDefaults m_defaults;
    SystemClock m_clock;
    QNetworkAccessManager m_network;
    LibsecretStore m_secrets;
    LocalModelServer m_localModel;
    // The focused X window's application; also names a Wayland app id by its desktop entry.
    X11ActiveApplication m_activeApplication;
    HostPortalRegistration m_portalRegistration; // before the session, which asks the portal
    SessionServices m_session; // the trigger, the clipboard and the paste chord of this session
    X11KeyState m_keyState;
    PocketsphinxBackend m_speech;
    std::unique_ptr<PulseCaptureDevice> m_microphone; // handed to the controller, which owns it
    XdgAutostartLoginItem m_loginItem;
    LinuxPermissions m_permissions;
    std::unique_ptr<AppController> m_controller;
};

} // namespace murmurly
