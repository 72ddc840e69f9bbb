#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace murmurly::testing {

// A portal frontend with the host application registry (tests/support/StandInPortalRegistry.cpp)
// on a test's private bus, which records each call it receives; stopped when the object goes.
class StandInPortalRegistryProcess {
public:
    explicit StandInPortalRegistryProcess(const QString& busAddress);
    ~StandInPortalRegistryProcess();
    StandInPortalRegistryProcess(const StandInPortalRegistryProcess&) = delete;
    StandInPortalRegistryProcess& operator=(const StandInPortalRegistryProcess&) = delete;

    bool isRunning() const { return m_running; }
    // Every call received, oldest first: "INTERFACE.MEMBER ARGUMENTS".
    QStringList calls();
    // The same, of the calls made from one connection (its unique bus name).
    QStringList callsFrom(const QString& sender);

private:
    QStringList ask(const QString& method, const QVariantList& arguments);

    QDBusConnection m_bus;
    QProcess m_process;
    bool m_running = false;
};

} // namespace murmurly::testing
