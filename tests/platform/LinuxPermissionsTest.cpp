#include "platform/linux/LinuxPermissions.h"
#include "PrivatePulseServer.h"
#include "RunTask.h"
#include "SilentUnixSocket.h"
#include "platform/linux/PulseSourceMonitor.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

#include <optional>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

// Sets an environment variable for the life of the object, then restores it.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const QByteArray& value)
        : m_name(name) {
        if (qEnvironmentVariableIsSet(name)) m_saved = qgetenv(name);
        qputenv(name, value);
    }
    ~ScopedEnv() {
        if (m_saved)
            qputenv(m_name.constData(), *m_saved);
        else
            qunsetenv(m_name.constData());
    }

private:
    QByteArray m_name;
    std::optional<QByteArray> m_saved;
};

// Runs `pactl` against the private server; its standard output, or nothing on failure.
std::optional<QString> pactl(const PrivatePulseServer& server, const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral("pactl"),
                  QStringList{QStringLiteral("--server=") + server.address()} + arguments);
    if (!process.waitForFinished(5000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        process.kill();
        process.waitForFinished(1000);
        return std::nullopt;
    }
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

// A folder of stand-in settings programs, which is all of PATH while the object exists (or, for a
// folder off PATH, PATH is empty). Each one, when started, records its arguments (count first) in
// <name>.args in the same folder.
class FakePrograms {
public:
    enum class Path { holdsThem, empty };

    explicit FakePrograms(const QStringList& names, Path path = Path::holdsThem)
        : m_path("PATH", path == Path::holdsThem ? QFile::encodeName(m_dir.path()) : QByteArray()) {
        for (const QString& name : names)
            add(name);
    }

    void add(const QString& name) {
        const QString script = m_dir.filePath(name);
        QFile file(script);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        // Only absolute paths inside: the test's PATH holds nothing but this folder. The rename
        // makes the record appear whole.
        const QString record = m_dir.filePath(name + QStringLiteral(".args"));
        file.write(QStringLiteral("#!/bin/sh\n"
                                  "printf '%s\\n' \"$#\" \"$@\" > '%1.part'\n"
                                  "/bin/mv '%1.part' '%1'\n")
                       .arg(record)
                       .toUtf8());
        file.close();
        ASSERT_TRUE(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }
    // The arguments `name` was started with, or nothing if it has not been started.
    std::optional<QStringList> startedWith(const QString& name) const {
        QFile file(m_dir.filePath(name + QStringLiteral(".args")));
        if (!file.open(QIODevice::ReadOnly)) return std::nullopt;
        QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
        if (lines.isEmpty() || lines.takeLast() != QString())
            return QStringList{QStringLiteral("<malformed>")};
        if (lines.isEmpty() || lines.takeFirst().toInt() != lines.size())
            return QStringList{QStringLiteral("<malformed>")};
        return lines;
    }
    bool anyStarted() const {
        return !QDir(m_dir.path())
                    .entryList({QStringLiteral("*.args"), QStringLiteral("*.part")}, QDir::Files)
                    .isEmpty();
    }

private:
    QTemporaryDir m_dir;
    ScopedEnv m_path;
};

// An audio server socket that accepts connections and never answers; PULSE_SERVER leads to it
// while the object exists.
class SilentPulseServer {
public:
    bool isListening() const { return m_socket.isListening(); }
    QString error() const { return m_socket.error(); }

private:
    QTemporaryDir m_dir;
    SilentUnixSocket m_socket{QFile::encodeName(m_dir.filePath(QStringLiteral("native"))),
                              SilentUnixSocket::Namespace::filesystem};
    ScopedEnv m_server{"PULSE_SERVER", "unix:" + QFile::encodeName(m_dir.filePath(QStringLiteral("native")))};
};

// Asks for microphone access and waits a bounded time; the answer, or nothing if none came.
std::optional<bool> askForMicrophone(LinuxPermissions& permissions) {
    const Bounded<bool> request = runBounded(permissions.requestMicrophoneAccess(), 10s);
    if (!request.finished) return std::nullopt;
    return request.value;
}

std::optional<QStringList> waitForStart(const FakePrograms& programs, const QString& name) {
    std::optional<QStringList> arguments;
    waitUntil([&] { return (arguments = programs.startedWith(name)).has_value(); }, 20s);
    return arguments;
}

} // namespace

// ---- microphone ----

// libpulse reads server hints from the X display's root window when it connects; the microphone
// tests keep to their private audio servers, so no display is named.
class MicrophoneAccess : public ::testing::Test {
protected:
    void SetUp() override {
        if (qEnvironmentVariableIsSet("DISPLAY")) m_display = qgetenv("DISPLAY");
        qunsetenv("DISPLAY");
    }
    void TearDown() override {
        if (m_display) qputenv("DISPLAY", *m_display);
    }

private:
    std::optional<QByteArray> m_display;
};

TEST_F(MicrophoneAccess, AuthorizedWhenTheAudioServerHasASource) {
    PrivatePulseServer server; // its default source is a null sink's monitor
    ASSERT_TRUE(server.isRunning()) << qPrintable(server.error());
    LinuxPermissions permissions;

    QElapsedTimer timer;
    timer.start();
    const bool first = permissions.microphoneAuthorized();
    EXPECT_LT(timer.elapsed(), 1000);
    // The first read waits a little for the answer; on a loaded machine it may come just later.
    EXPECT_TRUE(first || waitUntil([&] { return permissions.microphoneAuthorized(); }, 20s));
    EXPECT_TRUE(permissions.microphoneAuthorized());
}

TEST_F(MicrophoneAccess, NotAuthorizedWithoutAnAudioServer) {
    NoPulseServer noServer;
    LinuxPermissions permissions;

    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(permissions.microphoneAuthorized());
    EXPECT_LT(timer.elapsed(), 1000);

    // Later reads, while reconnections are tried, stay "no" and never wait for an answer the way
    // the first read may.
    for (int read = 0; read < 25; ++read) {
        EXPECT_FALSE(permissions.microphoneAuthorized());
        keepRunning(100ms);
    }
    EXPECT_EQ(permissions.microphoneAnswerWaits(), 1);
}

TEST_F(MicrophoneAccess, NotAuthorizedWhenTheServerNeverAnswers) {
    SilentPulseServer server;
    ASSERT_TRUE(server.isListening()) << qPrintable(server.error());
    LinuxPermissions permissions;

    // The server never answers, so only the limits can end these calls; the bounds below are
    // generous so that a loaded machine cannot fail them, and a missing limit still would.
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(permissions.microphoneAuthorized());
    EXPECT_LT(timer.elapsed(), PulseSourceMonitor::firstAnswerLimit.count() + 5000);
    // The second read does not wait again.
    EXPECT_FALSE(permissions.microphoneAuthorized());
    EXPECT_EQ(permissions.microphoneAnswerWaits(), 1);

    timer.restart();
    EXPECT_EQ(askForMicrophone(permissions), false);
    EXPECT_LT(timer.elapsed(), LinuxPermissions::microphoneRequestLimit.count() + 5000);
}

TEST_F(MicrophoneAccess, NotAuthorizedWhenTheServerHasNoSource) {
    PrivatePulseServer server(PrivatePulseServer::DefaultSource::none);
    ASSERT_TRUE(server.isRunning()) << qPrintable(server.error());
    ASSERT_EQ(pactl(server, {QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("sources")}),
              QString());
    LinuxPermissions permissions;

    EXPECT_FALSE(permissions.microphoneAuthorized());
    EXPECT_EQ(askForMicrophone(permissions), false);
    EXPECT_FALSE(permissions.microphoneAuthorized());
}

TEST_F(MicrophoneAccess, AnswerFollowsSourcesComingAndGoing) {
    PrivatePulseServer server(PrivatePulseServer::DefaultSource::none);
    ASSERT_TRUE(server.isRunning()) << qPrintable(server.error());
    LinuxPermissions permissions;
    ASSERT_FALSE(permissions.microphoneAuthorized());

    // A new sink brings its monitor source; the open connection hears of it.
    const std::optional<QString> module =
        pactl(server, {QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
                       QStringLiteral("sink_name=later")});
    ASSERT_TRUE(module.has_value());
    EXPECT_TRUE(waitUntil([&] { return permissions.microphoneAuthorized(); }, 20s));

    ASSERT_TRUE(pactl(server, {QStringLiteral("unload-module"), *module}).has_value());
    EXPECT_TRUE(waitUntil([&] { return !permissions.microphoneAuthorized(); }, 20s));
}

TEST_F(MicrophoneAccess, AnswerFollowsTheServerGoingAwayAndComingBack) {
    NoPulseServer noServer; // between the two servers, PULSE_SERVER leads nowhere
    LinuxPermissions permissions;
    std::optional<PrivatePulseServer> server(std::in_place);
    ASSERT_TRUE(server->isRunning()) << qPrintable(server->error());
    ASSERT_TRUE(waitUntil([&] { return permissions.microphoneAuthorized(); }, 20s));

    server.reset();
    EXPECT_TRUE(waitUntil([&] { return !permissions.microphoneAuthorized(); }, 20s));

    server.emplace();
    ASSERT_TRUE(server->isRunning()) << qPrintable(server->error());
    QElapsedTimer timer;
    timer.start();
    // Noticed by the retry that follows a lost connection, with no request needed.
    EXPECT_TRUE(waitUntil([&] { return permissions.microphoneAuthorized(); },
                          PulseSourceMonitor::retryInterval + PulseSourceMonitor::connectLimit + 2s));
    qInfo("server noticed after %lld ms", static_cast<long long>(timer.elapsed()));
}

TEST_F(MicrophoneAccess, RequestReturnsTheAnswer) {
    {
        PrivatePulseServer server;
        ASSERT_TRUE(server.isRunning()) << qPrintable(server.error());
        LinuxPermissions permissions;
        EXPECT_EQ(askForMicrophone(permissions), true);
    }
    {
        NoPulseServer noServer;
        LinuxPermissions permissions;
        QElapsedTimer timer;
        timer.start();
        EXPECT_EQ(askForMicrophone(permissions), false);
        EXPECT_LT(timer.elapsed(), 1000);
    }
}

TEST_F(MicrophoneAccess, RequestFindsAServerThatAppearedSinceTheLastRead) {
    NoPulseServer noServer;
    LinuxPermissions permissions;
    ASSERT_FALSE(permissions.microphoneAuthorized());
    PrivatePulseServer server; // sets PULSE_SERVER to itself
    ASSERT_TRUE(server.isRunning()) << qPrintable(server.error());

    // Asking connects at once instead of waiting for the next retry.
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(askForMicrophone(permissions), true);
    EXPECT_LT(timer.elapsed(), LinuxPermissions::microphoneRequestLimit.count());
    EXPECT_TRUE(permissions.microphoneAuthorized());
}

TEST_F(MicrophoneAccess, RequestLeavesTheEventLoopRunning) {
    SilentPulseServer server;
    ASSERT_TRUE(server.isListening()) << qPrintable(server.error());
    LinuxPermissions permissions;

    // Timer ticks counted only while the request is still unanswered: a request that blocked the
    // thread would answer before the loop could serve a single one.
    bool answered = false;
    int ticksWhilePending = 0;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        if (!answered) ++ticksWhilePending;
    });
    ticker.start(50);
    QElapsedTimer timer;
    timer.start();
    QCoro::Task<bool> task = permissions.requestMicrophoneAccess();
    EXPECT_FALSE(task.isReady()); // handed back at once, the answer still to come
    auto noteAnswer = [](QCoro::Task<bool> request, bool& done) -> QCoro::Task<bool> {
        const bool value = co_await std::move(request);
        done = true;
        co_return value;
    };
    const Bounded<bool> request = runBounded(noteAnswer(std::move(task), answered), 10s);
    ASSERT_TRUE(request.finished);
    EXPECT_EQ(request.value, false);
    EXPECT_GE(ticksWhilePending, 1);
    EXPECT_GE(timer.elapsed(), 500); // the silent server made it wait
}

// ---- settings programs ----

TEST(SystemSettings, SoundSettingsOpenTheFirstProgramFoundOnPath) {
    FakePrograms programs({QStringLiteral("pavucontrol"), QStringLiteral("gnome-control-center")});
    LinuxPermissions permissions;

    permissions.openSystemSettings(Permissions::microphonePane);
    EXPECT_EQ(waitForStart(programs, QStringLiteral("gnome-control-center")),
              QStringList{QStringLiteral("sound")});
    keepRunning(200ms);
    EXPECT_EQ(programs.startedWith(QStringLiteral("pavucontrol")), std::nullopt);
}

TEST(SystemSettings, SoundSettingsFallBackToPavucontrol) {
    FakePrograms programs({QStringLiteral("pavucontrol"), QStringLiteral("xfce4-settings-manager")});
    LinuxPermissions permissions;

    permissions.openSystemSettings(Permissions::microphonePane);
    EXPECT_EQ(waitForStart(programs, QStringLiteral("pavucontrol")), QStringList{});
    keepRunning(200ms);
    EXPECT_EQ(programs.startedWith(QStringLiteral("xfce4-settings-manager")), std::nullopt);
}

TEST(SystemSettings, SoundSettingsOnKdeOpenThePulseAudioModule) {
    FakePrograms programs({QStringLiteral("kcmshell5"), QStringLiteral("xfce4-settings-manager")});
    LinuxPermissions permissions;

    permissions.openSystemSettings(Permissions::microphonePane);
    EXPECT_EQ(waitForStart(programs, QStringLiteral("kcmshell5")),
              QStringList{QStringLiteral("kcm_pulseaudio")});
}

TEST(SystemSettings, KeyboardSettingsOpenTheKeyboardPage) {
    FakePrograms programs({QStringLiteral("gnome-control-center"), QStringLiteral("pavucontrol")});
    LinuxPermissions permissions;

    permissions.openSystemSettings(Permissions::keyboardPane);
    EXPECT_EQ(waitForStart(programs, QStringLiteral("gnome-control-center")),
              QStringList{QStringLiteral("keyboard")});
}

TEST(SystemSettings, KeyboardSettingsSkipSoundOnlyPrograms) {
    FakePrograms programs({QStringLiteral("pavucontrol"), QStringLiteral("kcmshell6"),
                           QStringLiteral("xfce4-keyboard-settings")});
    LinuxPermissions permissions;

    permissions.openSystemSettings(Permissions::keyboardPane);
    EXPECT_EQ(waitForStart(programs, QStringLiteral("kcmshell6")), QStringList{QStringLiteral("kcm_keys")});
    keepRunning(200ms);
    EXPECT_EQ(programs.startedWith(QStringLiteral("pavucontrol")), std::nullopt);
    EXPECT_EQ(programs.startedWith(QStringLiteral("xfce4-keyboard-settings")), std::nullopt);
}

TEST(SystemSettings, SettingsWithNothingOnPathStartNothing) {
    FakePrograms programs({QStringLiteral("gnome-control-center"), QStringLiteral("pavucontrol")},
                          FakePrograms::Path::empty);
    LinuxPermissions permissions;

    permissions.openSystemSettings(Permissions::microphonePane);
    permissions.openSystemSettings(Permissions::keyboardPane);
    keepRunning(500ms);
    EXPECT_FALSE(programs.anyStarted());
}

TEST(SystemSettings, UnknownSettingsPageStartsNothing) {
    FakePrograms programs({QStringLiteral("gnome-control-center"), QStringLiteral("pavucontrol")});
    LinuxPermissions permissions;

    permissions.openSystemSettings(QStringLiteral("display"));
    permissions.openSystemSettings(QString());
    keepRunning(500ms);
    EXPECT_FALSE(programs.anyStarted());
}
