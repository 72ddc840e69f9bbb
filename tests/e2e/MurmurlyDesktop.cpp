#include "MurmurlyDesktop.h"

#include "SpeechCorpus.h"
#include "WaitUntil.h"
#include "platform/linux/IniDefaults.h"

#include <QDBusMessage>
#include <QDBusVariant>

#include <X11/keysym.h>

#include <cstdio>

namespace murmurly::testing {

using namespace std::chrono_literals;

namespace {

const QString service = QStringLiteral("com.qv.Murmurly");
const QString path = QStringLiteral("/com/qv/Murmurly");
const QString interface = QStringLiteral("com.qv.Murmurly");
const QString connectionName = QStringLiteral("murmurly-e2e");

QProcessEnvironment programEnvironment() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    // Transcripts in the log, so a failure shows what was heard.
    environment.insert(QStringLiteral("MURMURLY_LOG_PRIVATE"), QStringLiteral("1"));
    return environment;
}

} // namespace

QString sentence(const char* id) {
    return libriVoxFolder() + QLatin1Char('/') + QLatin1String(id) + QStringLiteral(".wav");
}

RunningMurmurly::RunningMurmurly() {
    m_process.setProcessEnvironment(programEnvironment());
    QObject::connect(&m_process, &QProcess::readyReadStandardError,
                     [this] { m_log += QString::fromUtf8(m_process.readAllStandardError()); });
    m_process.start(QStringLiteral(MURMURLY_EXECUTABLE), {});
}

RunningMurmurly::~RunningMurmurly() {
    stop();
}

int RunningMurmurly::stop() {
    if (m_process.state() == QProcess::NotRunning) return m_process.exitCode();
    m_process.terminate();
    if (!waitUntil([&] { return m_process.state() == QProcess::NotRunning; }, 10s)) {
        killNow();
        return -1;
    }
    m_log += QString::fromUtf8(m_process.readAllStandardError());
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

void RunningMurmurly::killNow() {
    if (m_process.state() == QProcess::NotRunning) return;
    m_process.kill();
    m_process.waitForFinished(5000);
    m_log += QString::fromUtf8(m_process.readAllStandardError());
}

MurmurlyDesktopTest::MurmurlyDesktopTest(SessionBus kind)
    : m_busKind(kind) {
}

void MurmurlyDesktopTest::SetUp() {
    ASSERT_TRUE(pulse.isRunning()) << pulse.error().toStdString();
    ASSERT_TRUE(window.isReady());
    ASSERT_TRUE(keyboard.isOpen());
    QString address;
    if (m_busKind == SessionBus::withKeyring) {
        keyring = std::make_unique<PrivateKeyring>();
        ASSERT_EQ(keyring->error(), QString());
        address = keyring->busAddress();
    } else {
        bus = std::make_unique<PrivateSessionBus>();
        ASSERT_TRUE(bus->isRunning()) << bus->error().toStdString();
        address = bus->address();
    }
    connection.emplace(QDBusConnection::connectToBus(address, connectionName));
    ASSERT_TRUE(connection->isConnected());
}

void MurmurlyDesktopTest::TearDown() {
    if (keyboard.isOpen()) {
        // A failed test may have left the trigger key down on the shared X server.
        if (keyboard.isDown(XK_Alt_R)) keyboard.release(XK_Alt_R);
    }
    if (program) {
        program->stop();
        if (HasFailure()) std::printf("murmurly's log:\n%s\n", qPrintable(program->log()));
    }
    program.reset();
    connection.reset();
    QDBusConnection::disconnectFromBus(connectionName);
    keyring.reset();
    bus.reset();
}

void MurmurlyDesktopTest::setPreference(const QString& key, const QVariant& value) {
    IniDefaults(IniDefaults::defaultFilePath()).setValue(key, value);
}

std::optional<QVariant> MurmurlyDesktopTest::preference(const QString& key) const {
    // A fresh reader each time: the program writes the file while the test runs.
    const QVariant value = IniDefaults(IniDefaults::defaultFilePath()).value(key);
    if (!value.isValid()) return std::nullopt;
    return value;
}

std::optional<QString> MurmurlyDesktopTest::property(const QString& name) {
    QDBusMessage get = QDBusMessage::createMethodCall(
        service, path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << interface << name;
    const QDBusMessage reply = connection->call(get, QDBus::Block, 2000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return std::nullopt;
    return reply.arguments().constFirst().value<QDBusVariant>().variant().toString();
}

bool MurmurlyDesktopTest::waitForState(const QString& state, std::chrono::milliseconds limit) {
    return waitUntil([&] { return property(QStringLiteral("State")) == state; }, limit);
}

void MurmurlyDesktopTest::startProgram() {
    program = std::make_unique<RunningMurmurly>();
    ASSERT_TRUE(
        waitUntil([&] { return property(QStringLiteral("ModelStatus")) == QStringLiteral("ready"); }, 30s))
        << "log:\n"
        << program->log().toStdString();
    ASSERT_EQ(property(QStringLiteral("State")), QStringLiteral("idle"));
    ASSERT_TRUE(waitUntil([&] {
        return program->log().contains(QStringLiteral("Hotkey event tap installed"));
    })) << program->log().toStdString();
    keepRunning(500ms);
    ASSERT_TRUE(window.takeFocus());
}

void MurmurlyDesktopTest::dictateHolding(const QString& wavPath) {
    keyboard.press(XK_Alt_R);
    ASSERT_TRUE(waitForState(QStringLiteral("recording"), 5s)) << program->log().toStdString();
    ASSERT_TRUE(pulse.play(wavPath));
    keepRunning(300ms);
    keyboard.release(XK_Alt_R);
}

QString MurmurlyDesktopTest::waitForInsertedText() {
    waitUntil([&] { return !window.text().isEmpty(); }, 20s);
    return window.text();
}

} // namespace murmurly::testing
