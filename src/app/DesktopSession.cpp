#include "app/DesktopSession.h"

#include "app/HostPortalRegistration.h"
#include "app/PortalShortcutSession.h"
#include "app/RemoteDesktopPasteKeys.h"

#include "platform/wayland/WaylandConnection.h"

namespace murmurly {

DesktopSession DesktopSession::detect(const QProcessEnvironment& environment,
                                      HostPortalRegistration* registration) {
    DesktopSession session;
    session.waylandDisplay = environment.value(QStringLiteral("WAYLAND_DISPLAY")).toLocal8Bit();
    session.x11Display = environment.value(QStringLiteral("DISPLAY")).toLocal8Bit();
    session.desktop = environment.value(QStringLiteral("XDG_CURRENT_DESKTOP"));
    const QString type = environment.value(QStringLiteral("XDG_SESSION_TYPE"));
    // A compositor named by WAYLAND_DISPLAY makes a Wayland session, whatever XDG_SESSION_TYPE says
    // (it is often unset outside a display manager's login); "x11" there means a nested compositor
    // inside an X session, which stays an X11 session.
    if (session.waylandDisplay.isEmpty() || type == QStringLiteral("x11")) return session;
    session.kind = Kind::wayland;
    if (const auto interfaces = WaylandConnection::interfacesAt(session.waylandDisplay)) {
        session.compositorAnswered = true;
        session.globals = *interfaces;
    }
    // Only a Wayland session needs the portal: on X11 the keyboard is read directly.
    if (!environment.value(QStringLiteral("DBUS_SESSION_BUS_ADDRESS")).isEmpty()) {
        // The portal takes the application id only before the program's first call to it.
        if (registration) registration->ensure();
        session.offersShortcutsPortal = PortalShortcutSession::isOffered(QDBusConnection::sessionBus());
        if (!session.offersVirtualKeyboard())
            session.offersRemoteDesktop = RemoteDesktopPasteKeys::isOffered(QDBusConnection::sessionBus());
    }
    return session;
}

QByteArray DesktopSession::dataControlProtocol() const {
    for (const char* name : {"ext_data_control_manager_v1", "zwlr_data_control_manager_v1"})
        if (offers(name)) return name;
    return {};
}

} // namespace murmurly
