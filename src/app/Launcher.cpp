#include "app/Launcher.h"

#include "app/ControlClient.h"
#include "app/ControlOptions.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace murmurly {

namespace {

// The exit statuses a shell gives a command it cannot find or cannot run.
constexpr int exitProgramMissing = 127;
constexpr int exitProgramNotRun = 126;

QString ownPath() {
    return QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
}

} // namespace

std::optional<QString> Launcher::controlMethodFor(const QStringList& arguments) {
    if (arguments.size() != 2) return std::nullopt;
    for (const ControlOption& option : controlOptions)
        if (arguments.at(1) == QStringLiteral("--") + QLatin1String(option.name))
            return QString::fromLatin1(option.method);
    return std::nullopt;
}

QString Launcher::programFor(const QString& launcherPath) {
    const QDir folder = QFileInfo(launcherPath).absoluteDir();
    const QString name = QLatin1String(programName);
    for (const QString& candidate :
         {folder.filePath(name),
          folder.filePath(QStringLiteral(MURMURLY_PROGRAM_FROM_LAUNCHER "/") + name)}) {
        const QFileInfo file(candidate);
        if (file.isFile() && file.isExecutable()) return QDir::cleanPath(file.absoluteFilePath());
    }
    return {};
}

QString Launcher::command(const QString& programPath) {
    const QString launcher = qEnvironmentVariable(launcherVariable);
    return !launcher.isEmpty() && QFileInfo(launcher).isExecutable() ? launcher : programPath;
}

int Launcher::run(int argc, char** argv) {
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    if (const std::optional<QString> method = controlMethodFor(arguments)) {
        QCoreApplication application(argc, argv);
        return ControlClient::runOption(*method);
    }

    const QString launcher = ownPath();
    const QString program = programFor(launcher);
    if (program.isEmpty()) {
        const QDir folder = QFileInfo(launcher).absoluteDir();
        std::fprintf(
            stderr, "murmurly: the program itself (%s) is missing: it is neither in %s nor in %s\n",
            programName, qUtf8Printable(folder.path()),
            qUtf8Printable(QDir::cleanPath(folder.filePath(QStringLiteral(MURMURLY_PROGRAM_FROM_LAUNCHER)))));
        return exitProgramMissing;
    }
    ::setenv(launcherVariable, launcher.toLocal8Bit().constData(), 1);
    const QByteArray path = program.toLocal8Bit();
    ::execv(path.constData(), argv);
    std::fprintf(stderr, "murmurly: could not start %s: %s\n", path.constData(), std::strerror(errno));
    return exitProgramNotRun;
}

} // namespace murmurly
