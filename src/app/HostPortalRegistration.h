#pragma once

#include <QDBusConnection>
#include <QString>

namespace murmurly {

// Makes the program's application id known to the desktop portal
// (org.freedesktop.host.portal.Registry), so that the desktop files the shortcuts and consents it
// grants under this application rather than under an anonymous process. The portal accepts it
// only before the connection's first portal call, and a portal that restarts has forgotten it, so
// it is asked once for each portal process, before anything else is asked of that process.
// Portals before xdg-desktop-portal 1.19.4 have no registry: they know the program by its
// process, which is fine. Calls are bounded; main thread only.
class HostPortalRegistration {
public:
    static inline const QString interface = QStringLiteral("org.freedesktop.host.portal.Registry");
    // How long the portal may take to answer; it answers at once when it runs.
    static constexpr int limitMilliseconds = 3000;

    enum class Outcome { notAsked, registered, absent, failed };

    // `appId` is the basename of the program's desktop file.
    HostPortalRegistration(QDBusConnection bus, QString appId);

    // Registers with the portal process that runs now, unless that one was asked already; to be
    // called before each first call to a portal process. Blocks for at most a few seconds, and
    // only when the portal is asked.
    Outcome ensure();

    Outcome outcome() const { return m_outcome; }
    const QString& appId() const { return m_appId; }

private:
    QString portalOwner() const;

    QDBusConnection m_bus;
    QString m_appId;
    Outcome m_outcome = Outcome::notAsked;
    QString m_askedOwner; // the unique bus name of the portal process last asked
};

} // namespace murmurly
