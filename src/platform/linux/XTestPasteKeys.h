#pragma once

#include "output/PasteKeys.h"

#include <QByteArray>
#include <QStringList>

struct _XDisplay;

namespace murmurly {

class Defaults;
class X11OwnKeyEvents;

// The paste chord made with the X server's XTest extension: Ctrl+V, or Ctrl+Shift+V when the
// focused window belongs to a terminal emulator (where Ctrl+V goes to the program inside). Any
// modifier the user is holding (the trigger, say) is let go around the chord and pressed again
// after it, so the application sees exactly the chord. Used on the main thread.
class XTestPasteKeys final : public PasteKeys {
public:
    // Preference key: window classes to treat as terminals besides the built-in ones, separated
    // by commas.
    static inline const QString terminalClassesKey = QStringLiteral("terminalWindowClasses");

    // An empty display name means the DISPLAY of the environment. Every key event of the chord is
    // announced in `ownEvents` first, so the trigger's key reader does not take it for the user's.
    explicit XTestPasteKeys(const Defaults& defaults, QByteArray displayName = {},
                            X11OwnKeyEvents* ownEvents = nullptr);
    ~XTestPasteKeys() override;
    XTestPasteKeys(const XTestPasteKeys&) = delete;
    XTestPasteKeys& operator=(const XTestPasteKeys&) = delete;

    bool paste() override;

    // WM_CLASS names (lower case) of the common terminal emulators.
    static const QStringList& builtInTerminalClasses();
    // Whether a window of this WM_CLASS is a terminal, by the built-in list and the preference.
    bool isTerminal(const QString& instanceName, const QString& className) const;
    // The same for one name (a WM_CLASS name, or a Wayland app id, which terminals set to the same
    // names), whatever its case.
    static bool isTerminalName(const Defaults& defaults, const QString& name);

private:
    // The built-in names and the preference's, in lower case.
    static QStringList terminalNames(const Defaults& defaults);
    _XDisplay* display();

    const Defaults& m_defaults;
    QByteArray m_displayName;
    X11OwnKeyEvents* m_ownEvents = nullptr;
    _XDisplay* m_display = nullptr;
};

} // namespace murmurly
