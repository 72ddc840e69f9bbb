#include "app/CommandLine.h"

#include <QFile>
#include <QGuiApplication>
#include <QSettings>

#include <gtest/gtest.h>

using namespace murmurly;
using Kind = CommandLine::Invocation::Kind;

namespace {

CommandLine::Invocation parse(QStringList arguments) {
    arguments.prepend(QStringLiteral("murmurly"));
    return CommandLine::parse(arguments);
}

} // namespace

TEST(CommandLine, WithoutArgumentsTheTrayProgramRuns) {
    EXPECT_EQ(parse({}).kind, Kind::gui);
    EXPECT_FALSE(parse({}).autostarted);
}

TEST(CommandLine, AutostartRunsTheTrayProgramAsStartedByTheLogin) {
    const CommandLine::Invocation invocation = parse({QStringLiteral("--autostart")});
    EXPECT_EQ(invocation.kind, Kind::gui);
    EXPECT_TRUE(invocation.autostarted);
}

TEST(CommandLine, EachControlOptionCallsItsMethod) {
    const QList<QPair<QString, QString>> cases{
        {QStringLiteral("--press"), QStringLiteral("Press")},
        {QStringLiteral("--release"), QStringLiteral("Release")},
        {QStringLiteral("--toggle"), QStringLiteral("Toggle")},
        {QStringLiteral("--cancel"), QStringLiteral("Cancel")},
        {QStringLiteral("--settings"), QStringLiteral("OpenSettings")}};
    for (const auto& [option, method] : cases) {
        const CommandLine::Invocation invocation = parse({option});
        EXPECT_EQ(invocation.kind, Kind::control) << option.toStdString();
        EXPECT_EQ(invocation.controlMethod, method);
    }
}

TEST(CommandLine, TranscribeTakesOneFileALanguageAndCleanup) {
    CommandLine::Invocation invocation = parse({QStringLiteral("transcribe"), QStringLiteral("talk.wav")});
    ASSERT_EQ(invocation.kind, Kind::transcribe);
    EXPECT_EQ(invocation.transcribe.file, QStringLiteral("talk.wav"));
    EXPECT_EQ(invocation.transcribe.language, std::nullopt);
    EXPECT_FALSE(invocation.transcribe.cleanup);

    invocation = parse({QStringLiteral("transcribe"), QStringLiteral("/tmp/a b.wav"),
                        QStringLiteral("--language"), QStringLiteral("de-DE"), QStringLiteral("--cleanup")});
    ASSERT_EQ(invocation.kind, Kind::transcribe);
    EXPECT_EQ(invocation.transcribe.file, QStringLiteral("/tmp/a b.wav"));
    EXPECT_EQ(invocation.transcribe.language, QStringLiteral("de-DE"));
    EXPECT_TRUE(invocation.transcribe.cleanup);

    // Options may come first, and --language=ID works too.
    invocation =
        parse({QStringLiteral("--language=fr-FR"), QStringLiteral("transcribe"), QStringLiteral("x.wav")});
    ASSERT_EQ(invocation.kind, Kind::transcribe);
    EXPECT_EQ(invocation.transcribe.language, QStringLiteral("fr-FR"));
}

TEST(CommandLine, TranscribeTakesTheSpeechEngine) {
    CommandLine::Invocation invocation = parse({QStringLiteral("transcribe"), QStringLiteral("a.wav")});
    EXPECT_EQ(invocation.transcribe.engine, std::nullopt);
    invocation = parse({QStringLiteral("transcribe"), QStringLiteral("a.wav"), QStringLiteral("--engine"),
                        QStringLiteral("server")});
    ASSERT_EQ(invocation.kind, Kind::transcribe);
    EXPECT_EQ(invocation.transcribe.engine, SpeechEngineKind::server);
    invocation =
        parse({QStringLiteral("--engine=on-device"), QStringLiteral("transcribe"), QStringLiteral("a.wav")});
    ASSERT_EQ(invocation.kind, Kind::transcribe);
    EXPECT_EQ(invocation.transcribe.engine, SpeechEngineKind::onDevice);
}

TEST(CommandLine, MistakesAreUsageErrorsThatSayWhatIsWrong) {
    const QList<QPair<QStringList, QString>> cases{
        {{QStringLiteral("--press"), QStringLiteral("--release")},
         QStringLiteral("give only one of --press, --release, --toggle, --cancel and --settings")},
        {{QStringLiteral("transcribe")}, QStringLiteral("transcribe needs the WAV file to read")},
        {{QStringLiteral("transcribe"), QStringLiteral("a.wav"), QStringLiteral("b.wav")},
         QStringLiteral("transcribe reads one file; \"b.wav\" is one too many")},
        {{QStringLiteral("dictate")}, QStringLiteral("unknown command \"dictate\"")},
        {{QStringLiteral("--cleanup")},
         QStringLiteral("--language, --cleanup and --engine go with the transcribe command")},
        {{QStringLiteral("--engine"), QStringLiteral("server")},
         QStringLiteral("--language, --cleanup and --engine go with the transcribe command")},
        {{QStringLiteral("transcribe"), QStringLiteral("a.wav"), QStringLiteral("--engine"),
          QStringLiteral("cloud")},
         QStringLiteral("--engine is on-device or server, not \"cloud\"")},
        {{QStringLiteral("--toggle"), QStringLiteral("transcribe"), QStringLiteral("a.wav")},
         QStringLiteral("--toggle cannot be combined with the transcribe command")},
        {{QStringLiteral("transcribe"), QStringLiteral("a.wav"), QStringLiteral("--language"),
          QStringLiteral(" ")},
         QStringLiteral("--language needs a language identifier, like en-US")},
        {{QStringLiteral("--bogus")}, QStringLiteral("Unknown option 'bogus'.")},
        {{QStringLiteral("--autostart"), QStringLiteral("--press")},
         QStringLiteral("--autostart starts the program itself; it goes with no other option or command")},
        {{QStringLiteral("--autostart"), QStringLiteral("transcribe"), QStringLiteral("a.wav")},
         QStringLiteral("--autostart starts the program itself; it goes with no other option or command")},
        {{QStringLiteral("transcribe"), QStringLiteral("a.wav"), QStringLiteral("--language")},
         QStringLiteral("Missing value after '--language'.")},
    };
    for (const auto& [arguments, message] : cases) {
        const CommandLine::Invocation invocation = parse(arguments);
        EXPECT_EQ(invocation.kind, Kind::usageError) << arguments.join(QLatin1Char(' ')).toStdString();
        EXPECT_EQ(invocation.error.toStdString(), message.toStdString());
    }
}

TEST(CommandLine, HelpAndVersionWinOverEverythingElse) {
    EXPECT_EQ(parse({QStringLiteral("--help")}).kind, Kind::help);
    EXPECT_EQ(parse({QStringLiteral("-h")}).kind, Kind::help);
    EXPECT_EQ(parse({QStringLiteral("--toggle"), QStringLiteral("--help")}).kind, Kind::help);
    EXPECT_EQ(parse({QStringLiteral("--version")}).kind, Kind::version);
    EXPECT_EQ(parse({QStringLiteral("-v")}).kind, Kind::version);
    EXPECT_EQ(CommandLine::versionText(), QStringLiteral("murmurly 0.1.0"));
}

TEST(CommandLine, HelpExplainsEveryOptionTheCommandAndWayland) {
    const QString help = CommandLine::helpText();
    for (const char* text : {"Usage: murmurly [OPTION]",
                             "murmurly transcribe FILE [--language ID] [--engine ENGINE] [--cleanup]",
                             "push-to-talk",
                             "--press",
                             "--release",
                             "--toggle",
                             "--cancel",
                             "--settings",
                             "--language <ID>",
                             "--cleanup",
                             "--engine <ENGINE>",
                             "--autostart",
                             "-h, --help",
                             "-v, --version",
                             "transcribe FILE",
                             "Wayland",
                             "`murmurly --press`",
                             "`murmurly --release`",
                             "com.qv.Murmurly",
                             "Exit status:"})
        EXPECT_TRUE(help.contains(QString::fromUtf8(text))) << text << "\n" << help.toStdString();
    // No line wider than a terminal.
    for (const QString& line : help.split(QLatin1Char('\n')))
        EXPECT_LE(line.size(), 80) << line.toStdString();
}

// Desktops and portals match a program's windows and calls to its desktop file by name: the file
// installed from the source tree is the one the program names itself after.
TEST(CommandLine, TheProgramNamesItselfAfterItsDesktopFile) {
    CommandLine::nameApplication();
    EXPECT_EQ(QGuiApplication::desktopFileName(), QStringLiteral("com.qv.Murmurly"));
    const QString path = QStringLiteral(MURMURLY_DATA_DIR "/") + QGuiApplication::desktopFileName() +
                         QStringLiteral(".desktop");
    ASSERT_TRUE(QFile::exists(path)) << path.toStdString();
    QSettings entry(path, QSettings::IniFormat);
    entry.beginGroup(QStringLiteral("Desktop Entry"));
    EXPECT_EQ(entry.value(QStringLiteral("Type")).toString(), QStringLiteral("Application"));
    EXPECT_EQ(entry.value(QStringLiteral("Exec")).toString(), QStringLiteral("murmurly"));
    EXPECT_EQ(entry.value(QStringLiteral("Name")).toString(), QStringLiteral("Murmurly"));
}
