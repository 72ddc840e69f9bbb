#pragma once

#include "app/ControlClient.h"
#include "app/TranscribeCommand.h"

#include <QString>
#include <QStringList>

namespace murmurly {

// What the command line asks for, and the program's entry behind main().
class CommandLine {
public:
    struct Invocation {
        enum class Kind { gui, control, transcribe, help, version, usageError };

        Kind kind = Kind::gui;
        QString controlMethod;                 // for control: "Press", "Release", …
        TranscribeCommand::Options transcribe; // for transcribe
        QString error;                         // for usageError
        bool autostarted = false;              // for gui: started by the login (--autostart)
    };

    // The program's application id: the basename of its installed desktop file, the app id of its
    // Wayland windows and the id it gives the desktop portal.
    static inline const QString applicationId = QStringLiteral("com.qv.Murmurly");

    // Exit statuses besides those of the transcribe command.
    static constexpr int exitSuccess = ControlClient::exitDelivered;
    static constexpr int exitNotRunning = ControlClient::exitNotRunning;
    static constexpr int exitNoDisplay = 1;
    static constexpr int exitUsage = 2;

    // `arguments` as main() receives them, the program's name first.
    static Invocation parse(const QStringList& arguments);
    static QString helpText();
    static QString versionText();
    // Names the program to Qt: application, organization, version and desktop file.
    static void nameApplication();

    // Runs what the command line asks for and returns the exit status. Remote control and
    // transcribe work without a display; the tray program needs one.
    static int run(int argc, char** argv);
};

} // namespace murmurly
