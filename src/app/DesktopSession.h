#pragma once

#include <QByteArray>
#include <QList>
#include <QProcessEnvironment>
#include <QString>

namespace murmurly {

class HostPortalRegistration;

// The desktop session the program runs in, as the session itself tells: the environment names
// the display servers, and a Wayland compositor lists the protocols it offers (its globals). What
// the program can do there is read from those globals, never from the desktop's name.
struct DesktopSession {
    enum class Kind { x11, wayland };

    Kind kind = Kind::x11;
    QByteArray waylandDisplay; // WAYLAND_DISPLAY, on a Wayland session
    QByteArray x11Display;     // DISPLAY (XWayland's on a Wayland session), empty when none
    QString desktop;           // XDG_CURRENT_DESKTOP, for the log only
    bool compositorAnswered = false;
    QList<QByteArray> globals; // the compositor's interfaces
    // The session bus has the desktop portal's global shortcuts (asked on Wayland sessions only).
    bool offersShortcutsPortal = false;
    // The session bus has the desktop portal's remote desktop with a keyboard (asked on Wayland
    // sessions whose compositor offers no virtual keyboard).
    bool offersRemoteDesktop = false;

    // Reads the environment; on a Wayland session asks the compositor for its globals and the
    // session bus for the shortcuts portal (both bounded). `registration`, when given, makes the
    // program known to the portal before it is asked anything.
    static DesktopSession
    detect(const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment(),
           HostPortalRegistration* registration = nullptr);

    bool offers(const char* interface) const { return globals.contains(QByteArray(interface)); }
    // The data-control protocol the compositor offers, the standard one first; empty when none.
    QByteArray dataControlProtocol() const;
    bool offersVirtualKeyboard() const { return offers("zwp_virtual_keyboard_manager_v1"); }
};

} // namespace murmurly
