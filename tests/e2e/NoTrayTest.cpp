// The built program on a desktop without a tray: started by the login it opens no window and says
// through the desktop's notifications (a real dunst on the private session bus) that it runs, once
// per user; what the menu would show reaches the user the same way.
#include "MurmurlyDesktop.h"
#include "PrivateNotificationServer.h"
#include "WaitUntil.h"

#include <QProcess>

#include <X11/keysym.h>

using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

const QString runningNotice = QStringLiteral("Murmurly is running. Hold Right Alt to dictate.");

// The program's windows that are mapped (viewable) on the private X server.
QStringList visibleWindowsOf(qint64 processId) {
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                              QStringLiteral("--pid"), QString::number(processId)});
    if (!xdotool.waitForFinished(10000)) {
        xdotool.kill();
        xdotool.waitForFinished(3000);
        return {QStringLiteral("(xdotool did not answer)")};
    }
    return QString::fromUtf8(xdotool.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

// The notifications of Murmurly that the server has kept since it started (closing what is on
// screen first), oldest first.
QList<QVariantMap> murmurlyNotifications(PrivateNotificationServer& server) {
    QList<QVariantMap> ours;
    const auto history = server.closeAllAndListHistory();
    EXPECT_TRUE(history.has_value());
    if (!history) return ours;
    for (const QVariantMap& notification : *history)
        if (notification.value(QStringLiteral("appname")).toString() == QStringLiteral("Murmurly"))
            ours << notification;
    return ours;
}

class NoTrayTest : public MurmurlyDesktopTest {
protected:
    void SetUp() override {
        MurmurlyDesktopTest::SetUp();
        if (HasFatalFailure()) return;
        server = std::make_unique<PrivateNotificationServer>(bus->address());
        ASSERT_TRUE(server->isRunning()) << qPrintable(server->error());
    }
    void TearDown() override {
        MurmurlyDesktopTest::TearDown();
        server.reset();
    }

    // Starts the program as the autostart entry does and waits until it can dictate.
    void startAtLogin() {
        program = std::make_unique<RunningMurmurly>(murmurlyEnvironment(),
                                                    QStringList{QStringLiteral("--autostart")});
        ASSERT_TRUE(waitUntil([&] { return property(QStringLiteral("ModelStatus")).has_value(); }, 30s))
            << program->log().toStdString();
        ASSERT_TRUE(waitUntil([&] {
            return program->log().contains(QStringLiteral("started at login, so no window opens"));
        })) << program->log().toStdString();
    }

    std::unique_ptr<PrivateNotificationServer> server;
};

} // namespace

TEST_F(NoTrayTest, StartedAtLoginItOpensNoWindowAndSaysOncePerUserThatItRuns) {
    startAtLogin();
    // The notice counts as shown once the desktop took it; the program notes that in its settings.
    ASSERT_TRUE(
        waitUntil([&] { return preference(QStringLiteral("didShowRunningNotice")) == QVariant(true); }, 30s))
        << program->log().toStdString();
    const QList<QVariantMap> first = murmurlyNotifications(*server);
    ASSERT_EQ(first.size(), 1) << program->log().toStdString();
    EXPECT_EQ(first[0].value(QStringLiteral("body")).toString(), runningNotice);
    EXPECT_EQ(visibleWindowsOf(program->processId()), QStringList());
    // The focus stayed where the user had it.
    keyboard.tap(XK_w);
    EXPECT_TRUE(window.waitForText(QStringLiteral("w")));

    // The next login: no window and no notice.
    ASSERT_EQ(program->stop(), 0);
    startAtLogin();
    ASSERT_TRUE(waitForState(QStringLiteral("idle")));
    ASSERT_EQ(program->stop(), 0);
    EXPECT_EQ(murmurlyNotifications(*server).size(), 1) << program->log().toStdString();

    // Started by the user instead, the settings window opens (and the notice is still not repeated).
    program = std::make_unique<RunningMurmurly>();
    ASSERT_TRUE(TextFieldWindowProcess::waitForFocusOn(QStringLiteral("Murmurly Settings")))
        << program->log().toStdString();
    EXPECT_FALSE(visibleWindowsOf(program->processId()).isEmpty());
    ASSERT_EQ(program->stop(), 0);
    EXPECT_EQ(murmurlyNotifications(*server).size(), 1);
}

TEST_F(NoTrayTest, AFailedModelGivesOneNotificationWithTheMenusLines) {
    // The first-start notice has been shown before; a language without a model fails the check.
    setPreference(QStringLiteral("didShowRunningNotice"), true);
    setPreference(QStringLiteral("dictationLocale"), QStringLiteral("fr-FR"));
    startAtLogin();
    ASSERT_TRUE(
        waitUntil([&] { return property(QStringLiteral("ModelStatus")) == QStringLiteral("failed"); }, 30s))
        << program->log().toStdString();
    const QString error = property(QStringLiteral("LastError")).value_or(QString());
    const QString prefix = QStringLiteral("Speech model setup failed: ");
    ASSERT_TRUE(error.startsWith(prefix)) << qPrintable(error);
    const QString expected = QStringLiteral("Model: failed \u2014 ") + error.mid(prefix.size()) +
                             QStringLiteral("\n\u26A0\uFE0E ") + error;
    QList<QVariantMap> received;
    ASSERT_TRUE(waitUntil([&] {
        received = murmurlyNotifications(*server);
        return !received.isEmpty();
    })) << program->log().toStdString();
    // The server answers another program's notification only after taking in what reached it
    // before: a second notice sent with the first is counted now.
    ASSERT_TRUE(server->notifyAsAnotherProgram(QStringLiteral("marker")).has_value());
    received = murmurlyNotifications(*server);
    ASSERT_EQ(received.size(), 1);
    EXPECT_EQ(received[0].value(QStringLiteral("body")).toString(), expected);
}

TEST_F(NoTrayTest, ClickingTheNotificationOpensTheSettings) {
    startAtLogin();
    ASSERT_TRUE(
        waitUntil([&] { return preference(QStringLiteral("didShowRunningNotice")) == QVariant(true); }, 30s))
        << program->log().toStdString();
    ASSERT_EQ(server->displayedCount(), 1u);
    ASSERT_TRUE(server->activateNewest());
    EXPECT_TRUE(TextFieldWindowProcess::waitForFocusOn(QStringLiteral("Murmurly Settings")))
        << program->log().toStdString();
}
