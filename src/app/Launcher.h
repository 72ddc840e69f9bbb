#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace murmurly {

// The `murmurly` command. A compositor's key binding runs `murmurly --press` and `--release` at
// every press and release of the trigger, so the command must reach the running program at once:
// a lone control option is handled here, by a small executable that loads Qt Core and D-Bus only,
// and anything else is handed on, with the same arguments and in the same process, to the program
// itself (murmurly-program), which loads the recognizer, the audio and the widgets.
class Launcher {
public:
    static constexpr const char* programName = "murmurly-program";
    // Set by the launcher for the program it starts: the command the user runs, which the
    // program's autostart entry names.
    static constexpr const char* launcherVariable = "MURMURLY_LAUNCHER";

    // The control method of `arguments` (the program's name first) when they are one control
    // option alone, written out in full ("--press"); otherwise nothing, and the program decides.
    static std::optional<QString> controlMethodFor(const QStringList& arguments);

    // Where the program is for a launcher at `launcherPath`: beside it (the build folder), else in
    // the installed libexec folder relative to it. Empty when neither has it.
    static QString programFor(const QString& launcherPath);

    // The command that starts Murmurly, as seen from the program: the launcher that started it,
    // else the program's own path.
    static QString command(const QString& programPath);

    // main() of the `murmurly` command.
    static int run(int argc, char** argv);
};

} // namespace murmurly
