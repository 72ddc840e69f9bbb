// The `murmurly` command: which invocations it answers itself (the control options a key binding
// runs), where it finds the program it hands everything else to, and what the program's autostart
// entry is told to start. The built command is run as a process too.
#include "app/Launcher.h"

#include "ProgramCopy.h"
#include "RunningMurmurly.h"
#include "app/CommandLine.h"
#include "app/ControlOptions.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

constexpr auto limit = 30s;

QStringList withName(QStringList arguments) {
    arguments.prepend(QStringLiteral("murmurly"));
    return arguments;
}

// An executable file (its content does not matter to the look-up).
bool makeExecutable(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write("#!/bin/sh\n") > 0 &&
           file.setPermissions(file.permissions() | QFile::ExeOwner);
}

// No session bus to find a running program on, and no display.
QProcessEnvironment aloneEnvironment() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                       QStringLiteral("unix:path=/nonexistent/bus"));
    environment.remove(QStringLiteral("DISPLAY"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    return environment;
}

} // namespace

TEST(Launcher, EachControlOptionAloneIsAnsweredWithTheMethodTheProgramWouldCall) {
    for (const ControlOption& option : controlOptions) {
        const QStringList arguments = withName({QStringLiteral("--") + QLatin1String(option.name)});
        const CommandLine::Invocation invocation = CommandLine::parse(arguments);
        ASSERT_EQ(invocation.kind, CommandLine::Invocation::Kind::control) << option.name;
        EXPECT_EQ(Launcher::controlMethodFor(arguments), invocation.controlMethod) << option.name;
    }
}

TEST(Launcher, EverythingElseIsLeftToTheProgram) {
    const QList<QStringList> others{
        {},
        {QStringLiteral("--help")},
        {QStringLiteral("--version")},
        {QStringLiteral("--autostart")},
        {QStringLiteral("--press"), QStringLiteral("--release")}, // a usage error the program explains
        {QStringLiteral("-press")},                               // the program's parser takes it too
        {QStringLiteral("--press"), QStringLiteral("transcribe"), QStringLiteral("a.wav")},
        {QStringLiteral("transcribe"), QStringLiteral("a.wav")},
        {QStringLiteral("--pressure")},
    };
    for (const QStringList& arguments : others)
        EXPECT_EQ(Launcher::controlMethodFor(withName(arguments)), std::nullopt)
            << arguments.join(' ').toStdString();
    EXPECT_EQ(Launcher::controlMethodFor({}), std::nullopt);
}

TEST(Launcher, TheProgramIsFoundBesideTheCommandElseInTheInstalledLibexecFolder) {
    QTemporaryDir root;
    ASSERT_TRUE(root.isValid());
    const QString bin = root.filePath(QStringLiteral("usr/bin"));
    const QString libexec = root.filePath(QStringLiteral("usr/libexec/murmurly"));
    ASSERT_TRUE(QDir().mkpath(bin) && QDir().mkpath(libexec));
    const QString command = bin + QStringLiteral("/murmurly");
    ASSERT_TRUE(makeExecutable(command));

    EXPECT_EQ(Launcher::programFor(command), QString()) << "no program anywhere";

    // A file that cannot be run is not the program.
    QFile plain(libexec + QStringLiteral("/murmurly-program"));
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    plain.close();
    ASSERT_TRUE(plain.setPermissions(QFile::ReadOwner | QFile::WriteOwner));
    EXPECT_EQ(Launcher::programFor(command), QString());

    ASSERT_TRUE(plain.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    EXPECT_EQ(Launcher::programFor(command), libexec + QStringLiteral("/murmurly-program"));

    // The build folder has both side by side, and that one is taken first.
    ASSERT_TRUE(makeExecutable(bin + QStringLiteral("/murmurly-program")));
    EXPECT_EQ(Launcher::programFor(command), bin + QStringLiteral("/murmurly-program"));
}

TEST(Launcher, TheAutostartEntryStartsTheCommandThatStartedTheProgram) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const QString command = folder.filePath(QStringLiteral("murmurly"));
    ASSERT_TRUE(makeExecutable(command));
    const QString program = QStringLiteral("/usr/libexec/murmurly/murmurly-program");

    qputenv(Launcher::launcherVariable, command.toLocal8Bit());
    EXPECT_EQ(Launcher::command(program), command);
    // Started some other way: the program names itself.
    qputenv(Launcher::launcherVariable, QByteArray("/nonexistent/murmurly"));
    EXPECT_EQ(Launcher::command(program), program);
    qunsetenv(Launcher::launcherVariable);
    EXPECT_EQ(Launcher::command(program), program);
}

TEST(Launcher, TheBuiltCommandHandsEverythingButControlToTheProgram) {
    // The help text is the program's own: the command has none.
    const ProgramRun help = runMurmurly({QStringLiteral("--help")}, aloneEnvironment(), limit);
    ASSERT_TRUE(help.finished);
    EXPECT_EQ(help.exitCode, 0) << help.err.toStdString();
    EXPECT_EQ(help.out, CommandLine::helpText());

    const ProgramRun press = runMurmurly({QStringLiteral("--press")}, aloneEnvironment(), limit);
    ASSERT_TRUE(press.finished);
    EXPECT_EQ(press.exitCode, 1);
    EXPECT_EQ(press.err, QStringLiteral("Murmurly is not running.\n"));
}

TEST(Launcher, ACommandWithoutItsProgramStillControlsAndSaysWhatIsMissingForTheRest) {
    const ProgramCopy command;
    ASSERT_TRUE(command.isReady());

    // Control options are the command's own: a key binding may run a copy of it anywhere.
    const ProgramRun press =
        runMurmurlyAt(command.path(), {QStringLiteral("--press")}, aloneEnvironment(), limit);
    ASSERT_TRUE(press.finished);
    EXPECT_EQ(press.exitCode, 1);
    EXPECT_EQ(press.err, QStringLiteral("Murmurly is not running.\n"));

    const ProgramRun version =
        runMurmurlyAt(command.path(), {QStringLiteral("--version")}, aloneEnvironment(), limit);
    ASSERT_TRUE(version.finished);
    EXPECT_EQ(version.exitCode, 127);
    EXPECT_EQ(version.out, QString());
    const QString folderPath = QFileInfo(command.path()).canonicalPath();
    EXPECT_EQ(
        version.err,
        QStringLiteral("murmurly: the program itself (murmurly-program) is missing: it is neither in %1 nor "
                       "in %2\n")
            .arg(folderPath, QDir::cleanPath(folderPath + QStringLiteral("/../libexec/murmurly"))));
}
