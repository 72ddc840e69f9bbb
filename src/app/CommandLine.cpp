#include "app/CommandLine.h"

#include "app/ControlClient.h"
#include "app/ControlOptions.h"
#include "app/DBusControl.h"
#include "app/MurmurlyApp.h"
#include "app/MurmurlyShell.h"
#include "app/SingleInstance.h"
#include "app/TerminationSignals.h"
#include "core/Log.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusError>
#include <QGuiApplication>
#include <QLoggingCategory>

#include <QCoro/QCoroTask>

#include <cstdio>
#include <optional>

namespace murmurly {

namespace {

const QString transcribeCommand = QStringLiteral("transcribe");

struct Parser {
    QCommandLineParser parser;
    QCommandLineOption help{{QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Show this help.")};
    QCommandLineOption version{{QStringLiteral("v"), QStringLiteral("version")},
                               QStringLiteral("Show the version of Murmurly.")};
    QList<QCommandLineOption> controls;
    QCommandLineOption language{
        QStringLiteral("language"),
        QStringLiteral("With transcribe: the language spoken in FILE, as an identifier like en-US (default: "
                       "your dictation language, else en-US)."),
        QStringLiteral("ID")};
    QCommandLineOption cleanup{QStringLiteral("cleanup"),
                               QStringLiteral("With transcribe: tidy the text up with the cleanup provider "
                                              "chosen in the settings. If that fails, the text is printed "
                                              "as recognized, with a warning.")};

    QCommandLineOption autostart{
        QStringLiteral("autostart"),
        QStringLiteral(
            "Start as the login does (the autostart entry passes it): no window opens, not even on "
            "a desktop without a tray, and an instance already running is left alone.")};
    QCommandLineOption engine{
        QStringLiteral("engine"),
        QStringLiteral("With transcribe: on-device, or server to ask the transcription server set in the "
                       "settings, with the on-device text as the fallback (default: the engine chosen in "
                       "the settings)."),
        QStringLiteral("ENGINE")};

    Parser() {
        parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
        parser.addOption(help);
        parser.addOption(version);
        for (const ControlOption& option : controlOptions) {
            controls.append(
                QCommandLineOption(QString::fromLatin1(option.name), QString::fromUtf8(option.description)));
            parser.addOption(controls.last());
        }
        parser.addOption(language);
        parser.addOption(cleanup);
        parser.addOption(engine);
        parser.addOption(autostart);
    }
};

int runGui(int argc, char** argv, bool autostarted) {
    // Without a display Qt would abort with a message about platform plugins instead.
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        std::fputs("murmurly: there is no display to run on (neither DISPLAY nor WAYLAND_DISPLAY is set).\n"
                   "The remote-control options and the transcribe command work without one; see\n"
                   "murmurly --help.\n",
                   stderr);
        return CommandLine::exitNoDisplay;
    }
    QApplication application(argc, argv);
    // Murmurly lives in the tray: closing the settings window must not end it.
    QApplication::setQuitOnLastWindowClosed(false);
    TerminationSignals termination;

    QDBusConnection bus = QDBusConnection::sessionBus();
    QString busError;
    const SingleInstance::Role role = SingleInstance::claim(bus, DBusControl::serviceName, busError);
    if (role == SingleInstance::Role::another) {
        if (autostarted) {
            qCInfo(lcApp, "Murmurly is already running; nothing to start at login");
            return CommandLine::exitSuccess;
        }
        const ControlClient::Result result = ControlClient::call(QStringLiteral("OpenSettings"), bus);
        if (result.outcome == ControlClient::Outcome::delivered) {
            qCInfo(lcApp, "Murmurly is already running; asked it to open its settings");
            return CommandLine::exitSuccess;
        }
        std::fprintf(stderr, "murmurly: Murmurly is already running but did not answer: %s\n",
                     result.error.toUtf8().constData());
        return CommandLine::exitNotRunning;
    }
    if (role == SingleInstance::Role::alone)
        qCWarning(lcApp,
                  "No D-Bus session bus (%s): running without the one-instance check and remote control",
                  qUtf8Printable(busError));

    MurmurlyApp murmurly;
    MurmurlyShell shell(murmurly);
    shell.show(autostarted ? MurmurlyShell::StartedBy::login : MurmurlyShell::StartedBy::user);
    std::optional<DBusControl> control;
    if (role == SingleInstance::Role::first) {
        control.emplace(murmurly.controller(), [&murmurly] { murmurly.openSettings(); });
        if (!control->registerOn(bus))
            qCWarning(lcApp, "Could not put the remote control on the session bus: %s",
                      qUtf8Printable(bus.lastError().message()));
    }
    return QApplication::exec();
}

} // namespace

CommandLine::Invocation CommandLine::parse(const QStringList& arguments) {
    Invocation invocation;
    const auto fail = [&](const QString& message) {
        invocation.kind = Invocation::Kind::usageError;
        invocation.error = message;
        return invocation;
    };

    Parser p;
    if (!p.parser.parse(arguments)) return fail(p.parser.errorText());
    if (p.parser.isSet(p.help)) {
        invocation.kind = Invocation::Kind::help;
        return invocation;
    }
    if (p.parser.isSet(p.version)) {
        invocation.kind = Invocation::Kind::version;
        return invocation;
    }

    QStringList methods;
    QStringList given; // the control options as written, for messages
    for (qsizetype i = 0; i < p.controls.size(); ++i) {
        if (!p.parser.isSet(p.controls[i])) continue;
        methods << QString::fromLatin1(controlOptions[i].method);
        given << QStringLiteral("--") + QString::fromLatin1(controlOptions[i].name);
    }
    const QStringList positional = p.parser.positionalArguments();
    const bool transcribing = !positional.isEmpty() && positional.first() == transcribeCommand;

    if (!positional.isEmpty() && !transcribing)
        return fail(QStringLiteral("unknown command \"%1\"").arg(positional.first()));
    if (methods.size() > 1)
        return fail(QStringLiteral("give only one of --press, --release, --toggle, --cancel and --settings"));
    if (p.parser.isSet(p.autostart) && (transcribing || !methods.isEmpty()))
        return fail(QStringLiteral("--autostart starts the program itself; it goes with no other option or "
                                   "command"));
    if (!methods.isEmpty() && transcribing)
        return fail(QStringLiteral("%1 cannot be combined with the transcribe command").arg(given.first()));
    if (!transcribing &&
        (p.parser.isSet(p.language) || p.parser.isSet(p.cleanup) || p.parser.isSet(p.engine)))
        return fail(QStringLiteral("--language, --cleanup and --engine go with the transcribe command"));

    if (transcribing) {
        if (positional.size() < 2) return fail(QStringLiteral("transcribe needs the WAV file to read"));
        if (positional.size() > 2)
            return fail(
                QStringLiteral("transcribe reads one file; \"%1\" is one too many").arg(positional[2]));
        invocation.kind = Invocation::Kind::transcribe;
        invocation.transcribe.file = positional[1];
        if (p.parser.isSet(p.language)) {
            const QString language = p.parser.value(p.language).trimmed();
            if (language.isEmpty())
                return fail(QStringLiteral("--language needs a language identifier, like en-US"));
            invocation.transcribe.language = language;
        }
        invocation.transcribe.cleanup = p.parser.isSet(p.cleanup);
        if (p.parser.isSet(p.engine)) {
            const QString engine = p.parser.value(p.engine).trimmed();
            if (engine == QLatin1String("on-device"))
                invocation.transcribe.engine = SpeechEngineKind::onDevice;
            else if (engine == QLatin1String("server"))
                invocation.transcribe.engine = SpeechEngineKind::server;
            else
                return fail(QStringLiteral("--engine is on-device or server, not \"%1\"").arg(engine));
        }
        return invocation;
    }
    if (!methods.isEmpty()) {
        invocation.kind = Invocation::Kind::control;
        invocation.controlMethod = methods.first();
        return invocation;
    }
    invocation.kind = Invocation::Kind::gui;
    invocation.autostarted = p.parser.isSet(p.autostart);
    return invocation;
}

QString CommandLine::helpText() {
    Parser p;
    // Qt's own listing of the options, without its usage line and description.
    QString options = p.parser.helpText();
    options = options.mid(options.indexOf(QStringLiteral("Options:")));
    options = options.left(options.indexOf(QStringLiteral("\nArguments:"))).trimmed();

    return QStringLiteral("Usage: murmurly [OPTION]\n"
                          "       murmurly transcribe FILE [--language ID] [--engine ENGINE] [--cleanup]\n"
                          "\n"
                          "Murmurly is push-to-talk dictation for the desktop. Hold the trigger key (Right\n"
                          "Alt unless you chose another), speak, and let go: what you said is typed into\n"
                          "the application that has the keyboard focus, after your own replacements and,\n"
                          "if you turned it on, a cleanup by a language model. Started without options,\n"
                          "Murmurly keeps running in the background; starting it again opens its\n"
                          "settings.\n"
                          "\n") +
           options +
           QStringLiteral("\n"
                          "\n"
                          "Commands:\n"
                          "  transcribe FILE  Print the text spoken in the WAV recording FILE (integer PCM\n"
                          "                   of 8 to 32 bits or floating point, any rate and number of\n"
                          "                   channels) with your replacements applied. Needs no display,\n"
                          "                   no microphone and no running Murmurly. With --engine\n"
                          "                   server the recording is sent to your transcription server\n"
                          "                   (unless it holds no speech); if that fails, the on-device\n"
                          "                   text is printed, with a warning.\n"
                          "\n"
                          "Remote control:\n"
                          "  --press, --release, --toggle, --cancel and --settings act on the Murmurly\n"
                          "  running in your session, over D-Bus (name com.qv.Murmurly, object\n"
                          "  /com/qv/Murmurly, interface com.qv.Murmurly, with a State property). They\n"
                          "  need no display. On Wayland, where applications cannot watch the keyboard,\n"
                          "  bind a key of your compositor to `murmurly --press` on press and\n"
                          "  `murmurly --release` on release, or one key to `murmurly --toggle`.\n"
                          "\n"
                          "Exit status:\n"
                          "  0  done\n"
                          "  1  remote control: Murmurly is not running, or did not take the call;\n"
                          "     without options: there is no display (X11 or Wayland)\n"
                          "  2  the command line is wrong; transcribe: the file cannot be read, no speech\n"
                          "     model is installed for the language, or recognition failed\n");
}

QString CommandLine::versionText() {
    return QStringLiteral("murmurly " MURMURLY_VERSION);
}

void CommandLine::nameApplication() {
    QCoreApplication::setApplicationName(QStringLiteral("murmurly"));
    QCoreApplication::setOrganizationName(QStringLiteral("com.qv"));
    QCoreApplication::setApplicationVersion(QStringLiteral(MURMURLY_VERSION));
    // Desktops find the program's name and icon through its windows' app id.
    QGuiApplication::setDesktopFileName(applicationId);
}

int CommandLine::run(int argc, char** argv) {
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    const Invocation invocation = parse(arguments);

    // The recognizer's own chatter is debug output; QT_LOGGING_RULES can still turn it on.
    QLoggingCategory::setFilterRules(QStringLiteral("com.qv.murmurly.app.debug=false"));
    nameApplication();

    switch (invocation.kind) {
    case Invocation::Kind::usageError:
        std::fprintf(stderr, "murmurly: %s\nTry \"murmurly --help\" for more information.\n",
                     invocation.error.toUtf8().constData());
        return exitUsage;
    case Invocation::Kind::help:
        std::fputs(helpText().toUtf8().constData(), stdout);
        return exitSuccess;
    case Invocation::Kind::version:
        std::printf("%s\n", versionText().toUtf8().constData());
        return exitSuccess;
    case Invocation::Kind::control: {
        QCoreApplication application(argc, argv);
        return ControlClient::runOption(invocation.controlMethod);
    }
    case Invocation::Kind::transcribe: {
        // Warnings and failures on standard error, nothing chattier: standard output is the text.
        QLoggingCategory::setFilterRules(QStringLiteral("com.qv.murmurly.app.debug=false\n"
                                                        "com.qv.murmurly.app.info=false"));
        QCoreApplication application(argc, argv);
        return QCoro::waitFor(TranscribeCommand::run(invocation.transcribe));
    }
    case Invocation::Kind::gui:
        break;
    }
    return runGui(argc, argv, invocation.autostarted);
}

} // namespace murmurly
