#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <optional>

namespace murmurly::testing {

// Runs the text-field window (tests/support/TextFieldWindow.cpp) on the DISPLAY of the environment
// (or on the Wayland compositor an environment names) and reads what it reports. Every wait runs
// the event loop and is bounded.
class TextFieldWindowProcess {
public:
    explicit TextFieldWindowProcess(const QStringList& arguments = {});
    // On the display `environment` names through QT_QPA_PLATFORM and WAYLAND_DISPLAY or DISPLAY.
    TextFieldWindowProcess(const QStringList& arguments, const QProcessEnvironment& environment);
    ~TextFieldWindowProcess();

    // Whether the window came up with the keyboard focus (waited for by the constructor).
    bool isReady() const { return m_ready; }

    QString text() const { return m_text; }
    // "press SYM MODS" / "release SYM MODS" lines, in order, since the last clear.
    QStringList keyEvents() const { return m_keyEvents; }
    void clearKeyEvents() { m_keyEvents.clear(); }
    // The key events of one keysym (hex, as the window writes it).
    QStringList keyEventsOf(unsigned long keysym) const;

    bool waitForText(const QString& text, int milliseconds = 20000);
    // Gives the keyboard focus back to the window from outside, as a click of the user would, with
    // the X server's own focus call (xdotool): another client may have taken it. Bounded.
    bool takeFocus();
    // Waits, at most `milliseconds`, until the X keyboard focus is in the top-level window titled
    // `title` (another program's, such as the settings window Murmurly opens at start).
    static bool waitForFocusOn(const QString& title, int milliseconds = 20000);
    // Sends a command and waits for its "done".
    bool command(const QByteArray& command, const QByteArray& argument = {});
    // The clipboard as the window sees it: each type with its bytes; nothing if it did not answer.
    std::optional<QList<QPair<QString, QByteArray>>> clipboard();

private:
    void readLines();

    QProcess m_process;
    QByteArray m_pending;
    bool m_ready = false;
    QString m_text;
    QStringList m_keyEvents;
    QStringList m_done;
    std::optional<QList<QPair<QString, QByteArray>>> m_clipboard;
    std::optional<QList<QPair<QString, QByteArray>>> m_clipboardBeingRead;
};

} // namespace murmurly::testing
