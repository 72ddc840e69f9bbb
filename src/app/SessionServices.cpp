#include "app/SessionServices.h"

#include "app/PortalKeyEventSource.h"
#include "app/RemoteDesktopPasteKeys.h"
#include "core/Log.h"
#include "platform/linux/QtClipboard.h"
#include "platform/linux/X11KeyEventSource.h"
#include "platform/linux/XTestPasteKeys.h"
#include "platform/wayland/CompositorBindingKeySource.h"
#include "platform/wayland/DataControlClipboard.h"
#include "platform/wayland/VirtualKeyboardPasteKeys.h"
#include "platform/wayland/WaylandActiveApplication.h"

namespace murmurly {

SessionServices::SessionServices(const DesktopSession& session, Defaults& defaults,
                                 std::function<FocusedApplication(const QString& appId)> naming,
                                 HostPortalRegistration* registration)
    : m_session(session) {
    if (session.kind == DesktopSession::Kind::x11) {
        m_keyEvents = std::make_unique<X11KeyEventSource>(QByteArray(), &m_ownKeyEvents);
        m_clipboard = std::make_unique<QtClipboard>();
        m_pasteKeys = std::make_unique<XTestPasteKeys>(defaults, QByteArray(), &m_ownKeyEvents);
    } else {
        // No program may watch the keyboard on Wayland: the desktop's shortcuts portal tells of the
        // trigger where it has one; otherwise the compositor's bindings call us.
        if (session.offersShortcutsPortal) {
            m_keyReading = KeyReading::shortcutsPortal;
            auto portal = std::make_unique<PortalKeyEventSource>(QDBusConnection::sessionBus(), registration);
            m_portalKeys = portal.get();
            m_keyEvents = std::move(portal);
        } else {
            m_keyReading = KeyReading::compositorBindings;
            m_keyEvents = std::make_unique<CompositorBindingKeySource>();
        }

        auto dataControl = session.dataControlProtocol().isEmpty()
                               ? nullptr
                               : std::make_unique<DataControlClipboard>(session.waylandDisplay);
        if (dataControl && dataControl->isAvailable()) {
            m_clipboardAccess = ClipboardAccess::dataControl;
            m_clipboard = std::move(dataControl);
        } else {
            // The compositor bridges XWayland's selection to the Wayland clipboard.
            m_clipboard = std::make_unique<QtClipboard>();
        }

        if (session.offers(WaylandActiveApplication::protocol)) {
            auto windows =
                std::make_unique<WaylandActiveApplication>(session.waylandDisplay, std::move(naming));
            if (windows->isAvailable()) m_waylandApplication = std::move(windows);
        }

        auto keyboard = session.offersVirtualKeyboard()
                            ? std::make_unique<VirtualKeyboardPasteKeys>(session.waylandDisplay)
                            : nullptr;
        // Terminals take Ctrl+Shift+V, known by the focused window's app id.
        const auto isTerminal = [this, &defaults] {
            const std::optional<QString> appId =
                m_waylandApplication ? m_waylandApplication->focusedAppId() : std::nullopt;
            return appId && XTestPasteKeys::isTerminalName(defaults, *appId);
        };
        if (keyboard && keyboard->isAvailable()) {
            keyboard->setTerminalCheck(isTerminal);
            m_pasteChord = PasteChord::virtualKeyboard;
            m_virtualKeyboardWorks = true;
            m_pasteKeys = std::move(keyboard);
        } else if (session.offersRemoteDesktop) {
            // The desktop presses the keys for us, once the user has allowed it.
            auto portal = std::make_unique<RemoteDesktopPasteKeys>(QDBusConnection::sessionBus(), defaults,
                                                                   registration);
            portal->setTerminalCheck(isTerminal);
            portal->start();
            m_pasteChord = PasteChord::remoteDesktop;
            m_remoteDesktop = portal.get();
            m_pasteKeys = std::move(portal);
        } else {
            // XTest through XWayland: reaches X11 applications only.
            m_pasteKeys = std::make_unique<XTestPasteKeys>(defaults, QByteArray(), &m_ownKeyEvents);
        }
    }
    qCInfo(lcApp, "%s", qUtf8Printable(summary()));
}

SessionServices::~SessionServices() = default;

ActiveApplication* SessionServices::activeApplication() {
    return m_waylandApplication.get();
}

bool SessionServices::waylandKeyboardWorks() const {
    // A shortcut the desktop refused leaves no trigger until the user asks again.
    if (m_portalKeys && m_portalKeys->isRefused()) return false;
    if (m_remoteDesktop) {
        const RemoteDesktopPasteKeys::State state = m_remoteDesktop->state();
        return state != RemoteDesktopPasteKeys::State::refused &&
               state != RemoteDesktopPasteKeys::State::ended;
    }
    return m_virtualKeyboardWorks || !m_session.x11Display.isEmpty();
}

QString SessionServices::summary() const {
    if (m_session.kind == DesktopSession::Kind::x11)
        return QStringLiteral(
            "Desktop session: X11; keys through XInput2, clipboard through the X selection, "
            "paste chord through XTest");
    QString line =
        QStringLiteral("Desktop session: Wayland (%1)")
            .arg(m_session.desktop.isEmpty() ? QStringLiteral("desktop unnamed") : m_session.desktop);
    if (!m_session.compositorAnswered) line += QStringLiteral(", compositor did not answer");
    line +=
        m_keyReading == KeyReading::shortcutsPortal
            ? QStringLiteral("; keys through the shortcuts portal (org.freedesktop.portal.GlobalShortcuts)")
            : QStringLiteral("; keys through compositor bindings to murmurly --press / --release");
    line += m_clipboardAccess == ClipboardAccess::dataControl
                ? QStringLiteral("; clipboard through %1")
                      .arg(QString::fromLatin1(m_session.dataControlProtocol()))
                : QStringLiteral("; clipboard through XWayland (no data-control)");
    switch (m_pasteChord) {
    case PasteChord::virtualKeyboard:
        line += QStringLiteral("; paste chord through zwp_virtual_keyboard_v1");
        break;
    case PasteChord::remoteDesktop:
        line += QStringLiteral("; paste chord through the remote-desktop portal (no virtual keyboard)");
        break;
    case PasteChord::xtest:
        line += QStringLiteral("; paste chord through XTest on XWayland (no virtual keyboard)");
        break;
    }
    line += m_waylandApplication ? QStringLiteral("; focused application through %1")
                                       .arg(QString::fromLatin1(WaylandActiveApplication::protocol))
                                 : QStringLiteral("; focused application through XWayland only");
    return line;
}

SessionServices::Description SessionServices::keyReadingDescription() const {
    const QString title = QStringLiteral("Trigger key");
    if (m_keyReading == KeyReading::x11)
        return {title, QStringLiteral("Read from the X server while Murmurly runs."), true};
    if (m_portalKeys) {
        const std::optional<QString> assigned = m_portalKeys->assignedTrigger();
        if (m_portalKeys->isRefused())
            return {title,
                    m_portalKeys->problem() +
                        QStringLiteral(" Ask again with \"Change…\" in the General tab, or bind a key in the "
                                       "desktop's shortcut settings to \"murmurly --press\" on press and "
                                       "\"murmurly --release\" on release."),
                    false};
        return {title,
                assigned
                    ? QStringLiteral("Bound through the desktop's shortcuts: hold %1 to dictate. The desktop "
                                     "decides the key; change it in its shortcut settings.")
                          .arg(*assigned)
                    : QStringLiteral("Bound through the desktop's shortcuts, which decide the key."),
                true};
    }
    return {title, compositorBindingsHelp, true};
}

QString SessionServices::triggerNote() const {
    switch (m_keyReading) {
    case KeyReading::x11:
        return {};
    case KeyReading::shortcutsPortal:
        return m_portalKeys->note();
    case KeyReading::compositorBindings:
        break;
    }
    return compositorBindingsHelp;
}

SessionServices::Description SessionServices::textInsertionDescription() const {
    const QString title = QStringLiteral("Typing into other apps");
    if (m_session.kind == DesktopSession::Kind::x11)
        return {
            title,
            QStringLiteral("Pasted with Ctrl+V through the X server; the clipboard is put back afterwards."),
            true};
    const bool dataControl = m_clipboardAccess == ClipboardAccess::dataControl;
    const bool virtualKeyboard = m_pasteChord == PasteChord::virtualKeyboard;
    if (m_remoteDesktop) {
        const bool works = waylandKeyboardWorks();
        QString detail =
            works ? QStringLiteral("Pasted with Ctrl+V pressed by the desktop's remote-desktop portal, "
                                   "which asks your permission when Murmurly starts; the clipboard "
                                   "is put back afterwards.")
                  : m_remoteDesktop->problem() +
                        QStringLiteral(" Nothing is pasted until it is given; \"Check…\" under Keyboard "
                                       "access asks again.");
        if (!dataControl)
            detail +=
                QStringLiteral(" The clipboard goes through XWayland, which the desktop shares with its "
                               "own clipboard.");
        return {title, detail, works};
    }
    if (dataControl && virtualKeyboard)
        return {title,
                QStringLiteral("Pasted with Ctrl+V through the desktop's virtual keyboard; the clipboard is "
                               "put back afterwards."),
                true};
    QStringList missing;
    if (!dataControl)
        missing << QStringLiteral("This desktop does not let other programs use the clipboard directly; it "
                                  "goes through XWayland, which the desktop shares with its own clipboard.");
    if (!virtualKeyboard)
        missing << (m_session.x11Display.isEmpty()
                        ? QStringLiteral("This desktop offers no way for other programs to paste.")
                        : QStringLiteral("This desktop offers no virtual keyboard: Ctrl+V goes through "
                                         "XWayland and reaches only X11 applications."));
    return {title, missing.join(QLatin1Char(' ')), virtualKeyboard || !m_session.x11Display.isEmpty()};
}

} // namespace murmurly
