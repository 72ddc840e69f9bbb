#pragma once

#include <QCoro/QCoroTask>
#include <QString>

namespace murmurly {

// What the desktop lets Murmurly do: watch the keyboard and post the paste chord ("keyboard
// access"), and record the microphone. Read often (every few seconds), so reads never wait long.
class Permissions {
public:
    // The settings pages that openSystemSettings() knows.
    static inline const QString microphonePane = QStringLiteral("microphone");
    static inline const QString keyboardPane = QStringLiteral("keyboard");

    virtual ~Permissions() = default;

    virtual bool keyboardAccess() = 0;
    // The same answer; where the desktop has a prompt for granting it, the prompt is shown.
    virtual bool requestKeyboardAccess() = 0;

    virtual bool microphoneAuthorized() = 0;
    // Asks for microphone access where the desktop asks the user, else checks again.
    virtual QCoro::Task<bool> requestMicrophoneAccess() = 0;

    // Opens the desktop's own settings page for `pane`; does nothing when there is none.
    virtual void openSystemSettings(const QString& pane) = 0;
};

} // namespace murmurly
