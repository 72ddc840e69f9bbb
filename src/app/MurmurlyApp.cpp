#include "app/MurmurlyApp.h"

#include "app/CommandLine.h"
#include "app/Launcher.h"
#include "app/PortalKeyEventSource.h"
#include "app/RemoteDesktopPasteKeys.h"
#include "core/AppController.h"
#include "core/Log.h"
#include "records/HistoryStore.h"

#include <QCoreApplication>

namespace murmurly {

MurmurlyApp::MurmurlyApp(QObject* parent)
    : QObject(parent)
    , m_localModel(m_defaults, m_network)
    , m_portalRegistration(QDBusConnection::sessionBus(), CommandLine::applicationId)
    , m_session(
          DesktopSession::detect(QProcessEnvironment::systemEnvironment(), &m_portalRegistration), m_defaults,
          [this](const QString& appId) { return m_activeApplication.applicationFor(appId, appId); },
          &m_portalRegistration)
    // The running program keeps what the recognizer learns of the voice and microphone between
    // runs, so that the first dictation after start is recognized as well as the later ones.
    , m_speech(PocketsphinxBackend::defaultModelRoots(), {},
               CepstralMeanStore(CepstralMeanStore::defaultFolder()))
    , m_microphone(std::make_unique<PulseCaptureDevice>())
    , m_loginItem(Launcher::command(QCoreApplication::applicationFilePath())) {
    if (m_loginItem.renewOutdatedEntry())
        qCInfo(lcApp, "Renewed the autostart entry: a start at login now opens no window");
    if (m_session.session().kind == DesktopSession::Kind::wayland)
        m_permissions.setKeyboardCheck([this] { return m_session.waylandKeyboardWorks(); });
    // What the desktop refused (the trigger's shortcut, the permission to press keys) is asked
    // for again only when the user asks.
    PortalKeyEventSource* portal = m_session.shortcutsPortal();
    RemoteDesktopPasteKeys* remoteDesktop = m_session.remoteDesktop();
    if (portal || remoteDesktop) {
        m_permissions.setKeyboardRequest([portal, remoteDesktop] {
            if (portal && portal->isRefused()) portal->retry();
            if (remoteDesktop && (remoteDesktop->state() == RemoteDesktopPasteKeys::State::refused ||
                                  remoteDesktop->state() == RemoteDesktopPasteKeys::State::ended))
                remoteDesktop->start();
        });
    }
    m_controller = std::make_unique<AppController>(AppServices{
        .defaults = m_defaults,
        .clock = m_clock,
        .keyEvents = m_session.keyEvents(),
        .keyState = m_keyState,
        .activeApplication =
            m_session.activeApplication() ? *m_session.activeApplication() : m_activeApplication,
        .clipboard = m_session.clipboard(),
        .pasteKeys = m_session.pasteKeys(),
        .speech = m_speech,
        .microphone = std::move(m_microphone),
        .secrets = m_secrets,
        .localModel = m_localModel,
        .network = m_network,
        .loginItem = m_loginItem,
        .permissions = m_permissions,
        .historyFilePath = HistoryStore::defaultFilePath(),
    });
}

MurmurlyApp::~MurmurlyApp() = default;

void MurmurlyApp::openSettings() {
    // Logged, so that a second launch or a remote call leaves a trace; the window opens on the signal.
    qCInfo(lcApp, "Settings requested");
    emit settingsRequested();
}

} // namespace murmurly
