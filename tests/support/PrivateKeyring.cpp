#include "PrivateKeyring.h"

#include "ChildProcess.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMap>
#include <QThread>

namespace murmurly::testing {

namespace {

constexpr int startLimitMilliseconds = 30000;
const QString secretsName = QStringLiteral("org.freedesktop.secrets");

using StringMap = QMap<QString, QString>;

} // namespace

PrivateKeyring::PrivateKeyring() {
    qDBusRegisterMetaType<StringMap>();
    if (!m_bus.isRunning()) {
        m_error = m_bus.error();
        return;
    }
    if (!m_dir.isValid()) {
        m_error = QStringLiteral("no temporary folder");
        return;
    }
    startKeyring();
}

PrivateKeyring::~PrivateKeyring() {
    stopChild(m_keyring);
    QDBusConnection::disconnectFromBus(QStringLiteral("murmurly-test-keyring"));
}

bool PrivateKeyring::startKeyring() {
    const QString home = m_dir.filePath(QStringLiteral("home"));
    const QString runtime = m_dir.filePath(QStringLiteral("runtime"));
    QDir().mkpath(home);
    QDir().mkpath(runtime);
    QFile::setPermissions(runtime, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "GNOME_KEYRING_CONTROL", "SSH_AUTH_SOCK"})
        environment.remove(QString::fromLatin1(name));
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), m_bus.address());
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/.local/share"));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), home + QStringLiteral("/.cache"));
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    m_keyring.setProcessEnvironment(environment);
    m_keyring.setProcessChannelMode(QProcess::MergedChannels);
    endWithThisProcess(m_keyring);
    m_keyring.start(
        QStringLiteral("gnome-keyring-daemon"),
        {QStringLiteral("--foreground"), QStringLiteral("--unlock"), QStringLiteral("--components=secrets")});
    if (!m_keyring.waitForStarted(startLimitMilliseconds)) {
        m_error = QStringLiteral("gnome-keyring-daemon did not start: ") + m_keyring.errorString();
        return false;
    }
    // The login keyring's password, one line on standard input: empty. The daemon creates the
    // login keyring with it and makes it the default collection.
    m_keyring.write("\n");
    m_keyring.waitForBytesWritten(startLimitMilliseconds);
    m_keyring.closeWriteChannel();
    if (!waitForSecretService()) {
        m_error = QStringLiteral(
                      "no Secret Service appeared on the private bus (gnome-keyring-daemon %1, exit %2): ")
                      .arg(m_keyring.state() == QProcess::Running ? QStringLiteral("running")
                                                                  : QStringLiteral("ended"))
                      .arg(m_keyring.exitCode()) +
                  QString::fromUtf8(m_keyring.readAll());
        return false;
    }
    return true;
}

bool PrivateKeyring::waitForSecretService() const {
    QDBusConnection bus =
        QDBusConnection::connectToBus(m_bus.address(), QStringLiteral("murmurly-test-keyring"));
    if (!bus.isConnected()) return false;
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < startLimitMilliseconds) {
        if (bus.interface()->isServiceRegistered(secretsName)) {
            // Ready once the default collection (the login keyring) exists.
            const QDBusMessage reply =
                bus.call(QDBusMessage::createMethodCall(
                             secretsName, QStringLiteral("/org/freedesktop/secrets"),
                             QStringLiteral("org.freedesktop.Secret.Service"), QStringLiteral("ReadAlias"))
                             << QStringLiteral("default"),
                         QDBus::Block, 10000);
            if (reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty() &&
                qdbus_cast<QDBusObjectPath>(reply.arguments().constFirst()).path() != QLatin1String("/"))
                return true;
        }
        if (m_keyring.state() == QProcess::NotRunning) return false;
        QThread::msleep(50);
    }
    return false;
}

int PrivateKeyring::countItems(const QString& service, const QString& account) const {
    QDBusConnection bus =
        QDBusConnection::connectToBus(m_bus.address(), QStringLiteral("murmurly-test-keyring"));
    QDBusMessage call = QDBusMessage::createMethodCall(
        secretsName, QStringLiteral("/org/freedesktop/secrets"),
        QStringLiteral("org.freedesktop.Secret.Service"), QStringLiteral("SearchItems"));
    const StringMap attributes{{QStringLiteral("service"), service}, {QStringLiteral("account"), account}};
    call << QVariant::fromValue(attributes);
    const QDBusMessage reply = bus.call(call, QDBus::Block, 10000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 2) return -1;
    int count = 0;
    for (const QVariant& paths : reply.arguments())
        count += static_cast<int>(qdbus_cast<QList<QDBusObjectPath>>(paths).size());
    return count;
}

} // namespace murmurly::testing
