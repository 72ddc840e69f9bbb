#include "PrivateSessionBus.h"

#include "ChildProcess.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>

namespace murmurly::testing {

namespace {

constexpr int startLimitMilliseconds = 30000;

QByteArray busConfig(const QString& socketDir, PrivateSessionBus::Access access) {
    return QStringLiteral(R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:dir=%1</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">%2
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)")
        .arg(socketDir, access == PrivateSessionBus::Access::anyUser
                            ? QStringLiteral("\n    <allow user=\"*\"/>")
                            : QString())
        .toUtf8();
}

} // namespace

PrivateSessionBus::PrivateSessionBus(Access access) {
    if (!start(access)) return;
    m_hadAddress = qEnvironmentVariableIsSet("DBUS_SESSION_BUS_ADDRESS");
    m_previousAddress = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_address.toUtf8());
}

PrivateSessionBus::~PrivateSessionBus() {
    stopChild(m_daemon);
    if (m_address.isEmpty()) return;
    if (m_hadAddress)
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_previousAddress);
    else
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
}

bool PrivateSessionBus::start(Access access) {
    if (!m_dir.isValid()) {
        m_error = QStringLiteral("no temporary folder");
        return false;
    }
    const QString socketDir = m_dir.filePath(QStringLiteral("bus"));
    const QString configPath = m_dir.filePath(QStringLiteral("bus.conf"));
    QDir().mkpath(socketDir);
    if (access == Access::anyUser) {
        // Other users must reach the socket.
        const auto open = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup |
                          QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther;
        QFile::setPermissions(m_dir.path(), open);
        QFile::setPermissions(socketDir, open);
    }
    QFile config(configPath);
    if (!config.open(QIODevice::WriteOnly) || config.write(busConfig(socketDir, access)) < 0) {
        m_error = QStringLiteral("cannot write the bus configuration");
        return false;
    }
    config.close();

    endWithThisProcess(m_daemon);
    m_daemon.start(QStringLiteral("dbus-daemon"),
                   {QStringLiteral("--config-file=") + configPath, QStringLiteral("--nofork"),
                    QStringLiteral("--print-address=1")});
    if (!m_daemon.waitForStarted(startLimitMilliseconds)) {
        m_error = QStringLiteral("dbus-daemon did not start: ") + m_daemon.errorString();
        return false;
    }
    const QDeadlineTimer deadline(startLimitMilliseconds);
    QByteArray output;
    while (!output.contains('\n') && !deadline.hasExpired() && m_daemon.state() == QProcess::Running) {
        m_daemon.waitForReadyRead(200);
        output += m_daemon.readAllStandardOutput();
    }
    const QString address = QString::fromUtf8(output).trimmed();
    if (address.isEmpty()) {
        m_error = QStringLiteral("dbus-daemon printed no address: ") +
                  QString::fromUtf8(m_daemon.readAllStandardError());
        return false;
    }
    m_address = address;
    return true;
}

} // namespace murmurly::testing
