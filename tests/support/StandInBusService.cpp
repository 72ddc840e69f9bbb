#include "StandInBusService.h"

#include <QCoreApplication>
#include <QDBusError>
#include <QDBusVirtualObject>
#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace murmurly::testing {

namespace {

// SIGTERM reaches the event loop through a socket pair: the handler only writes a byte.
int terminationPipe[2] = {-1, -1};

void onTerminate(int) {
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(terminationPipe[1], &byte, 1);
}

} // namespace

StandInBusService::StandInBusService(Log log)
    : m_log(log)
    , m_bus(QDBusConnection::sessionBus()) {
    if (!m_bus.isConnected()) m_log(QStringLiteral("no session bus: ") + m_bus.lastError().message());
}

int StandInBusService::serve(QDBusVirtualObject& object, const QList<Object>& objects,
                             const QString& service) {
    if (!m_bus.isConnected()) return 1;
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, terminationPipe) != 0) return 1;
    QSocketNotifier termination(terminationPipe[0], QSocketNotifier::Read);
    const Log log = m_log;
    QObject::connect(&termination, &QSocketNotifier::activated, QCoreApplication::instance(), [log] {
        log(QStringLiteral("terminated"));
        QCoreApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = onTerminate;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGTERM, &action, nullptr);

    for (const Object& each : objects) {
        if (!m_bus.registerVirtualObject(each.path, &object, each.option)) {
            m_log(QStringLiteral("cannot register %1").arg(each.path));
            return 1;
        }
    }
    if (!m_bus.registerService(service)) {
        m_log(QStringLiteral("cannot own %1: %2").arg(service, m_bus.lastError().message()));
        return 1;
    }
    m_log(QStringLiteral("serving %1 as %2").arg(service, m_bus.baseService()));
    return QCoreApplication::exec();
}

} // namespace murmurly::testing
