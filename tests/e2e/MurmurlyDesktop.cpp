#include "MurmurlyDesktop.h"

#include "SpeechCorpus.h"
#include "WaitUntil.h"
#include "platform/linux/IniDefaults.h"

#include <X11/keysym.h>

#include <cstdio>

namespace murmurly::testing {

using namespace std::chrono_literals;

namespace {

const QString connectionName = QStringLiteral("murmurly-e2e");

} // namespace

QString sentence(const char* id) {
    return libriVoxFolder() + QLatin1Char('/') + QLatin1String(id) + QStringLiteral(".wav");
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
    control.emplace(address, connectionName);
    ASSERT_TRUE(control->isConnected());
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
    control.reset();
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
    return control->property(name);
}

bool MurmurlyDesktopTest::waitForState(const QString& state, std::chrono::milliseconds limit) {
    return control->waitForState(state, limit);
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
    ASSERT_TRUE(TextFieldWindowProcess::waitForFocusOn(QStringLiteral("Murmurly Settings")))
        << program->log().toStdString();
    ASSERT_TRUE(window.takeFocus());
}

void MurmurlyDesktopTest::dictateHolding(const QString& wavPath) {
    keyboard.press(XK_Alt_R);
    ASSERT_TRUE(waitForState(QStringLiteral("recording"))) << program->log().toStdString();
    ASSERT_TRUE(pulse.waitForRecorder()) << program->log().toStdString();
    ASSERT_TRUE(pulse.play(wavPath));
    keepRunning(300ms);
    keyboard.release(XK_Alt_R);
}

QString MurmurlyDesktopTest::waitForInsertedText() {
    waitUntil([&] { return !window.text().isEmpty(); }, insertionWait);
    return window.text();
}

} // namespace murmurly::testing
