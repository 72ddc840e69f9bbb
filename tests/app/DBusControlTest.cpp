// The built program as a user runs it on a desktop: a private X server (from the test main), a
// private session bus, a private audio server whose null sink's monitor is the microphone, a
// private home, and another application's text field holding the keyboard focus. The program is
// driven with its own command line (--toggle, --cancel, --settings) over D-Bus, and recordings
// are played into the sink.
#include "CancelledDictation.h"
#include "MurmurlyControl.h"
#include "PrivatePulseServer.h"
#include "PrivateSessionBus.h"
#include "RunningMurmurly.h"
#include "SpeechCorpus.h"
#include "TemporaryHome.h"
#include "TextFieldWindowProcess.h"
#include "WaitUntil.h"
#include "cleanup/CleanupProvider.h"
#include "cleanup/CleanupSettings.h"
#include "core/AppController.h"
#include "platform/linux/IniDefaults.h"
#include "records/HistoryStore.h"

#include <QDBusConnection>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <utility>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

const QString service = QStringLiteral("com.qv.Murmurly");
const QString path = QStringLiteral("/com/qv/Murmurly");
const QString interface = QStringLiteral("com.qv.Murmurly");

QString sentence(const char* id) {
    return libriVoxFolder() + QLatin1Char('/') + QLatin1String(id) + QStringLiteral(".wav");
}

// A terminal without a display: remote control needs none.
QProcessEnvironment headlessEnvironment() {
    QProcessEnvironment environment = murmurlyEnvironment();
    environment.remove(QStringLiteral("DISPLAY"));
    return environment;
}

// One short-lived murmurly command (a control option, or a second launch).
ProgramRun command(const QStringList& arguments,
                   std::optional<QProcessEnvironment> environment = std::nullopt) {
    return runMurmurly(arguments, environment.value_or(murmurlyEnvironment()), 30s);
}

class DBusControlTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(bus.isRunning()) << bus.error().toStdString();
        ASSERT_TRUE(pulse.isRunning()) << pulse.error().toStdString();
        ASSERT_TRUE(window.isReady());
        control.emplace(bus.address(), QStringLiteral("murmurly-test"));
        ASSERT_TRUE(control->isConnected());
    }

    void TearDown() override {
        if (program) {
            program->stop();
            if (HasFailure()) std::printf("murmurly's log:\n%s\n", qPrintable(program->log()));
        }
        program.reset();
        control.reset();
    }

    // A property of the program's control object, or nothing while it does not answer.
    std::optional<QString> property(const QString& name) { return control->property(name); }

    bool waitForState(const QString& state, std::chrono::milliseconds limit = 20s) {
        return control->waitForState(state, limit);
    }

    // The bus connection the program's announcements arrive on.
    QDBusConnection& connection() { return control->connection(); }

    // Starts the program and waits until it can dictate: its control object answers and its
    // speech model is ready.
    void startProgram() {
        program = std::make_unique<RunningMurmurly>();
        ASSERT_TRUE(waitUntil(
            [&] { return property(QStringLiteral("ModelStatus")) == QStringLiteral("ready"); }, 30s))
            << "log:\n"
            << program->log().toStdString();
        EXPECT_EQ(property(QStringLiteral("State")), QStringLiteral("idle"));
        EXPECT_TRUE(waitUntil([&] { return program->log().contains(QStringLiteral("Speech model ready")); }));
        // A bare X server has no tray, so the program opened its settings window, which took the
        // focus; the user clicks back into the text field.
        ASSERT_TRUE(TextFieldWindowProcess::waitForFocusOn(QStringLiteral("Murmurly Settings")))
            << program->log().toStdString();
        ASSERT_TRUE(window.takeFocus());
    }

    PrivateSessionBus bus;
    PrivatePulseServer pulse;
    TemporaryHome home;
    TextFieldWindowProcess window;
    std::optional<MurmurlyControl> control;
    std::unique_ptr<RunningMurmurly> program;
};

// Collects the values of one property the program announces with PropertiesChanged.
class Announcements : public QObject {
    Q_OBJECT

public:
    explicit Announcements(QString property)
        : m_property(std::move(property)) {}

    QStringList values;

public slots:
    void changed(const QString& interfaceName, const QVariantMap& changed, const QStringList&) {
        if (interfaceName == interface && changed.contains(m_property))
            values << changed.value(m_property).toString();
    }

private:
    QString m_property;
};

} // namespace

TEST_F(DBusControlTest, ToggleDictatesARecordingIntoTheFocusedTextField) {
    startProgram();
    Announcements announcements(QStringLiteral("State"));
    ASSERT_TRUE(connection().connect(service, path, QStringLiteral("org.freedesktop.DBus.Properties"),
                                     QStringLiteral("PropertiesChanged"), &announcements,
                                     SLOT(changed(QString, QVariantMap, QStringList))));

    const ProgramRun start = command({QStringLiteral("--toggle")}, headlessEnvironment());
    ASSERT_TRUE(start.finished);
    EXPECT_EQ(start.exitCode, 0) << start.err.toStdString();
    EXPECT_EQ(start.err, QString());
    ASSERT_TRUE(waitForState(QStringLiteral("recording"))) << program->log().toStdString();
    ASSERT_TRUE(pulse.waitForRecorder()) << program->log().toStdString();

    const Utterance utterance{
        QStringLiteral("sense_and_sensibility_01_austen_64kb-0890"),
        sentence("sense_and_sensibility_01_austen_64kb-0890"),
        QStringLiteral("unless to be rather cold hearted and rather selfish is to be ill disposed")};
    ASSERT_TRUE(pulse.play(utterance.wavPath));
    keepRunning(300ms);
    EXPECT_EQ(property(QStringLiteral("State")), QStringLiteral("recording"));

    const ProgramRun stop = command({QStringLiteral("--toggle")}, headlessEnvironment());
    EXPECT_EQ(stop.exitCode, 0) << stop.err.toStdString();
    ASSERT_TRUE(waitUntil([&] { return !window.text().isEmpty(); }, insertionWait))
        << program->log().toStdString();
    EXPECT_TRUE(waitForState(QStringLiteral("idle")));

    const QString text = window.text();
    std::printf("inserted: \"%s\"\n", qPrintable(text));
    // The recognized words with the trailing space the default settings add.
    EXPECT_TRUE(text.endsWith(QLatin1Char(' '))) << text.toStdString();
    const WordErrors errors = wordErrors(utterance.reference, text.trimmed());
    std::printf("word errors: %d of %d\n", errors.errors, errors.referenceWords);
    EXPECT_LE(errors.rate(), 50.0) << text.toStdString();
    EXPECT_TRUE(program->log().contains(QStringLiteral("Transcript: ") + text.trimmed()))
        << program->log().toStdString();

    // Every step of the dictation was announced, in order.
    EXPECT_TRUE(waitUntil([&] { return announcements.values.endsWith(QStringLiteral("idle")); }));
    EXPECT_EQ(announcements.values, (QStringList{QStringLiteral("recording"), QStringLiteral("transcribing"),
                                                 QStringLiteral("inserting"), QStringLiteral("idle")}));
    EXPECT_EQ(program->stop(), 0) << program->log().toStdString();
    EXPECT_TRUE(program->log().contains(QStringLiteral("Quitting on signal 15")));
}

TEST_F(DBusControlTest, LastErrorIsEmptyWhileNothingWentWrong) {
    startProgram();
    EXPECT_EQ(property(QStringLiteral("LastError")), QString());
    EXPECT_EQ(program->stop(), 0) << program->log().toStdString();
}

TEST_F(DBusControlTest, LastErrorTellsWhatWentWrongAndIsAnnounced) {
    // Cleanup by a provider whose key is not stored (this bus has no keyring): the dictation goes
    // through uncleaned and the program says why.
    IniDefaults preferences(IniDefaults::defaultFilePath());
    preferences.setValue(AppController::cleanupEnabledKey, true);
    preferences.setValue(CleanupSettings::providerKey,
                         CleanupProviders::rawValue(CleanupProvider::anthropic));
    startProgram();
    EXPECT_EQ(property(QStringLiteral("LastError")), QString());
    Announcements announcements(QStringLiteral("LastError"));
    ASSERT_TRUE(connection().connect(service, path, QStringLiteral("org.freedesktop.DBus.Properties"),
                                     QStringLiteral("PropertiesChanged"), &announcements,
                                     SLOT(changed(QString, QVariantMap, QStringList))));

    ASSERT_EQ(command({QStringLiteral("--toggle")}, headlessEnvironment()).exitCode, 0);
    ASSERT_TRUE(waitForState(QStringLiteral("recording"))) << program->log().toStdString();
    ASSERT_TRUE(pulse.waitForRecorder()) << program->log().toStdString();
    ASSERT_TRUE(pulse.play(sentence("sense_and_sensibility_01_austen_64kb-0890")));
    keepRunning(300ms);
    ASSERT_EQ(command({QStringLiteral("--toggle")}, headlessEnvironment()).exitCode, 0);
    ASSERT_TRUE(waitUntil([&] { return !window.text().isEmpty(); }, insertionWait))
        << program->log().toStdString();
    EXPECT_TRUE(waitForState(QStringLiteral("idle")));

    const QString expected = QStringLiteral("Cleanup is on but the selected provider isn't configured.");
    EXPECT_EQ(property(QStringLiteral("LastError")), expected);
    EXPECT_TRUE(waitUntil([&] { return !announcements.values.isEmpty(); }, 20s));
    EXPECT_EQ(announcements.values, QStringList{expected});
}

namespace {

void writeBytes(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

QByteArray readBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

TEST_F(DBusControlTest, GarbageInTheSettingsAndHistoryFilesDoesNotStopTheProgram) {
    writeBytes(IniDefaults::defaultFilePath(), QByteArray("\xff\xfe[[[ not = an \x01 ini\n=\n["));
    writeBytes(home.dataHome() + QStringLiteral("/murmurly/history.json"), QByteArray("[{\"id\":[[[[{{"));
    startProgram();
    ASSERT_EQ(command({QStringLiteral("--toggle")}, headlessEnvironment()).exitCode, 0);
    ASSERT_TRUE(waitForState(QStringLiteral("recording"))) << program->log().toStdString();
    ASSERT_TRUE(pulse.waitForRecorder()) << program->log().toStdString();
    ASSERT_TRUE(pulse.play(sentence("sense_and_sensibility_01_austen_64kb-0890")));
    keepRunning(300ms);
    ASSERT_EQ(command({QStringLiteral("--toggle")}, headlessEnvironment()).exitCode, 0);
    EXPECT_TRUE(waitUntil([&] { return !window.text().isEmpty(); }, insertionWait))
        << program->log().toStdString();
    EXPECT_TRUE(waitForState(QStringLiteral("idle")));
    EXPECT_EQ(program->stop(), 0) << program->log().toStdString();
}

TEST_F(DBusControlTest, AnUnreadableHistoryIsKeptAsideAtTheFirstRecordAndTheLastErrorSaysSo) {
    IniDefaults preferences(IniDefaults::defaultFilePath());
    preferences.setValue(HistoryStore::enabledKey, true);
    const QString historyPath = home.dataHome() + QStringLiteral("/murmurly/history.json");
    const QByteArray garbage("[{\"id\": \"half a file, cut off by a full disk");
    writeBytes(historyPath, garbage);
    startProgram();
    EXPECT_EQ(property(QStringLiteral("LastError")), QString());
    EXPECT_EQ(readBytes(historyPath), garbage); // nothing moves before something is saved

    ASSERT_EQ(command({QStringLiteral("--toggle")}, headlessEnvironment()).exitCode, 0);
    ASSERT_TRUE(waitForState(QStringLiteral("recording"))) << program->log().toStdString();
    ASSERT_TRUE(pulse.waitForRecorder()) << program->log().toStdString();
    ASSERT_TRUE(pulse.play(sentence("sense_and_sensibility_01_austen_64kb-0890")));
    keepRunning(300ms);
    ASSERT_EQ(command({QStringLiteral("--toggle")}, headlessEnvironment()).exitCode, 0);
    ASSERT_TRUE(waitUntil([&] { return !window.text().isEmpty(); }, insertionWait))
        << program->log().toStdString();
    EXPECT_TRUE(waitForState(QStringLiteral("idle")));

    const QDir folder = QFileInfo(historyPath).absoluteDir();
    QStringList kept;
    ASSERT_TRUE(waitUntil([&] {
        kept = folder.entryList({QStringLiteral("history.unreadable-*.json")}, QDir::Files);
        return !kept.isEmpty();
    })) << folder.entryList(QDir::Files).join(QLatin1Char(' ')).toStdString();
    ASSERT_EQ(kept.size(), 1);
    EXPECT_EQ(readBytes(folder.filePath(kept.first())), garbage);
    const auto entries = HistoryStore::decodeEntries(readBytes(historyPath));
    ASSERT_TRUE(entries.has_value());
    EXPECT_EQ(entries->size(), 1);
    EXPECT_EQ(property(QStringLiteral("LastError")),
              QStringLiteral("History could not be read \u2014 the old file was kept as ") + kept.first() +
                  QLatin1Char('.'));
    const QString logLine = QStringLiteral("History file could not be read; kept it as ");
    EXPECT_TRUE(waitUntil([&] { return program->log().contains(logLine); })) << program->log().toStdString();
    EXPECT_EQ(program->stop(), 0) << program->log().toStdString();
    EXPECT_EQ(program->log().count(logLine), 1) << program->log().toStdString(); // said once
}

TEST_F(DBusControlTest, PressAndReleaseDictateAsHoldingTheTriggerKeyDoes) {
    startProgram();
    // What a Wayland compositor's shortcut runs on the key's press and on its release.
    const ProgramRun press = command({QStringLiteral("--press")}, headlessEnvironment());
    EXPECT_EQ(press.exitCode, 0) << press.err.toStdString();
    ASSERT_TRUE(waitForState(QStringLiteral("recording")));
    ASSERT_TRUE(pulse.waitForRecorder()) << program->log().toStdString();
    ASSERT_TRUE(pulse.play(sentence("sense_and_sensibility_01_austen_64kb-0930")));
    keepRunning(300ms);
    // No key is down, so the recording watchdog must not take the release for lost.
    EXPECT_EQ(property(QStringLiteral("State")), QStringLiteral("recording"));

    const ProgramRun release = command({QStringLiteral("--release")}, headlessEnvironment());
    EXPECT_EQ(release.exitCode, 0) << release.err.toStdString();
    ASSERT_TRUE(waitUntil([&] { return !window.text().isEmpty(); }, insertionWait));
    EXPECT_TRUE(waitForState(QStringLiteral("idle")));
    const QString text = window.text();
    std::printf("inserted: \"%s\"\n", qPrintable(text));
    EXPECT_LE(
        wordErrors(QStringLiteral("he might even have been made amiable himself"), text.trimmed()).rate(),
        50.0)
        << text.toStdString();
}

TEST_F(DBusControlTest, CancelWhileRecordingInsertsNothing) {
    startProgram();
    ASSERT_TRUE(window.command("set-text", "before"));
    ASSERT_TRUE(window.waitForText(QStringLiteral("before")));

    ASSERT_EQ(command({QStringLiteral("--toggle")}).exitCode, 0);
    ASSERT_TRUE(waitForState(QStringLiteral("recording")));
    ASSERT_TRUE(pulse.waitForRecorder()) << program->log().toStdString();
    std::unique_ptr<QProcess> player =
        pulse.startPlaying(sentence("sense_and_sensibility_01_austen_64kb-0870"));
    keepRunning(1500ms);

    const ProgramRun cancel = command({QStringLiteral("--cancel")});
    EXPECT_EQ(cancel.exitCode, 0) << cancel.err.toStdString();
    expectCancelledWithNothingInserted(*program, *control, window, *player, QStringLiteral("before"));
}

TEST_F(DBusControlTest, ASecondLaunchOpensTheSettingsOfTheFirstAndLeaves) {
    startProgram();
    const ProgramRun second = command({});
    ASSERT_TRUE(second.finished);
    EXPECT_EQ(second.exitCode, 0) << second.err.toStdString();
    EXPECT_TRUE(waitUntil([&] { return program->log().count(QStringLiteral("Settings requested")) == 1; }))
        << program->log().toStdString();
    EXPECT_TRUE(program->isRunning());

    const ProgramRun settings = command({QStringLiteral("--settings")});
    EXPECT_EQ(settings.exitCode, 0) << settings.err.toStdString();
    EXPECT_TRUE(waitUntil([&] { return program->log().count(QStringLiteral("Settings requested")) == 2; }))
        << program->log().toStdString();
    EXPECT_EQ(property(QStringLiteral("State")), QStringLiteral("idle"));
}

TEST_F(DBusControlTest, TheCommandRunsTheTrayProgramInItsOwnProcessAndTellsItHowItWasStarted) {
    startProgram();
    const QString processFolder = QStringLiteral("/proc/%1").arg(program->processId());
    // The process the command started became the program itself.
    const QString running = QFileInfo(processFolder + QStringLiteral("/exe")).symLinkTarget();
    EXPECT_EQ(QFileInfo(running).fileName(), QStringLiteral("murmurly-program"));

    // It knows the command it was started with, for its autostart entry.
    QFile environment(processFolder + QStringLiteral("/environ"));
    ASSERT_TRUE(environment.open(QIODevice::ReadOnly));
    QString launcher;
    for (const QByteArray& entry : environment.readAll().split('\0'))
        if (entry.startsWith("MURMURLY_LAUNCHER=")) launcher = QString::fromLocal8Bit(entry.mid(18));
    ASSERT_FALSE(launcher.isEmpty());
    EXPECT_EQ(QFileInfo(launcher).fileName(), QStringLiteral("murmurly"));
    EXPECT_EQ(QFileInfo(launcher).absolutePath(), QFileInfo(running).absolutePath());
}

TEST_F(DBusControlTest, ControlOptionsWithoutARunningProgramSayItIsNotRunning) {
    for (const QString& option :
         {QStringLiteral("--press"), QStringLiteral("--release"), QStringLiteral("--toggle"),
          QStringLiteral("--cancel"), QStringLiteral("--settings")}) {
        const ProgramRun run = command({option});
        ASSERT_TRUE(run.finished);
        EXPECT_EQ(run.exitCode, 1) << option.toStdString();
        EXPECT_EQ(run.err, QStringLiteral("Murmurly is not running.\n"));
        EXPECT_EQ(run.out, QString());
    }
    // Nor with no session bus at all, and no display either.
    QProcessEnvironment environment = headlessEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                       QStringLiteral("unix:path=/nonexistent/bus"));
    const ProgramRun run = command({QStringLiteral("--press")}, environment);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("Murmurly is not running.\n"));
}

TEST_F(DBusControlTest, WithoutADisplayTheProgramSaysWhatStillWorks) {
    const ProgramRun run = command({}, headlessEnvironment());
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err,
              QStringLiteral("murmurly: there is no display to run on (neither DISPLAY nor WAYLAND_DISPLAY "
                             "is set).\nThe remote-control options and the transcribe command work without "
                             "one; see\nmurmurly --help.\n"));
    EXPECT_EQ(property(QStringLiteral("State")), std::nullopt);
}

TEST_F(DBusControlTest, WithoutASessionBusTheProgramRunsAnywayAndSaysSo) {
    QProcessEnvironment environment = murmurlyEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                       QStringLiteral("unix:path=/nonexistent/bus"));
    RunningMurmurly outsider(environment);
    EXPECT_TRUE(waitUntil([&] { return outsider.log().contains(QStringLiteral("Speech model ready")); }, 30s))
        << outsider.log().toStdString();
    EXPECT_TRUE(outsider.log().contains(QStringLiteral("No D-Bus session bus")))
        << outsider.log().toStdString();
    EXPECT_TRUE(outsider.isRunning());
    // Nothing of it is on the test's bus.
    EXPECT_EQ(property(QStringLiteral("State")), std::nullopt);
    EXPECT_EQ(outsider.stop(), 0) << outsider.log().toStdString();
}

#include "DBusControlTest.moc"
