#pragma once

#include "app/DesktopSession.h"
#include "core/ActiveApplication.h"
#include "platform/linux/X11OwnKeyEvents.h"

#include <QString>

#include <functional>
#include <memory>

namespace murmurly {

class Clipboard;
class Defaults;
class HostPortalRegistration;
class KeyEventSource;
class PasteKeys;
class PortalKeyEventSource;
class RemoteDesktopPasteKeys;
class WaylandActiveApplication;

// The implementations of the trigger, clipboard and paste-chord ports that this session offers,
// chosen once at start-up, in this one place, from what the session answers (DesktopSession), and
// logged once. On X11 the X server's; on Wayland the compositor's data-control clipboard and
// virtual keyboard where it has them, else XWayland's, and the trigger through the desktop's
// shortcuts portal where it has one, else through compositor key bindings. The core sees only
// the ports. Main thread only.
class SessionServices {
public:
    enum class KeyReading { x11, shortcutsPortal, compositorBindings };
    enum class ClipboardAccess { x11Selection, dataControl };
    enum class PasteChord { xtest, virtualKeyboard, remoteDesktop };

    // How to make the trigger where the compositor's key bindings must call the program.
    static inline const QString compositorBindingsHelp = QStringLiteral(
        "This desktop lets no program watch the keyboard. Bind a key in the desktop's shortcut settings: "
        "\"murmurly --press\" on press and \"murmurly --release\" on release (or \"murmurly --toggle\"), "
        "and Esc to \"murmurly --cancel\".");

    // One row of the Permissions tab: how something is done here, in a plain sentence.
    struct Description {
        QString title;
        QString detail;
        bool working = false;
    };

    // `defaults` (the terminal list), `naming` (an application's name from its app id) and
    // `registration` (the program's id for the portals, renewed before their sessions are
    // opened; may be null) must outlive this object.
    SessionServices(const DesktopSession& session, Defaults& defaults,
                    std::function<FocusedApplication(const QString& appId)> naming = {},
                    HostPortalRegistration* registration = nullptr);
    ~SessionServices();
    SessionServices(const SessionServices&) = delete;
    SessionServices& operator=(const SessionServices&) = delete;

    KeyEventSource& keyEvents() { return *m_keyEvents; }
    Clipboard& clipboard() { return *m_clipboard; }
    PasteKeys& pasteKeys() { return *m_pasteKeys; }
    // The focused application where this session tells it in its own way (a Wayland compositor
    // that lists its windows); null where the X server's focused window is the answer.
    ActiveApplication* activeApplication();
    // The trigger through the desktop's shortcuts portal, where it is used; null elsewhere.
    PortalKeyEventSource* shortcutsPortal() const { return m_portalKeys; }
    // The paste chord through the desktop's remote-desktop portal, where it is used; null elsewhere.
    RemoteDesktopPasteKeys* remoteDesktop() const { return m_remoteDesktop; }

    KeyReading keyReading() const { return m_keyReading; }
    ClipboardAccess clipboardAccess() const { return m_clipboardAccess; }
    PasteChord pasteChord() const { return m_pasteChord; }
    const DesktopSession& session() const { return m_session; }

    // Whether the trigger can be read and the chord posted, on a Wayland session; on X11 the X
    // server's extensions decide (the permissions ask it).
    bool waylandKeyboardWorks() const;

    // The Permissions tab's rows: how keys are read, and how text is inserted.
    Description keyReadingDescription() const;
    Description textInsertionDescription() const;

    // One line under the trigger in the General tab, where this session reads the trigger in a way
    // of its own (the desktop's shortcuts, or key bindings the user makes); empty on X11.
    QString triggerNote() const;

    // The log line of the choice.
    QString summary() const;

private:
    DesktopSession m_session;
    KeyReading m_keyReading = KeyReading::x11;
    ClipboardAccess m_clipboardAccess = ClipboardAccess::x11Selection;
    PasteChord m_pasteChord = PasteChord::xtest;
    bool m_virtualKeyboardWorks = false;
    X11OwnKeyEvents m_ownKeyEvents; // the paste chord's keys, which the X11 trigger reader ignores
    std::unique_ptr<KeyEventSource> m_keyEvents;
    PortalKeyEventSource* m_portalKeys = nullptr;      // m_keyEvents, where the portal reads the trigger
    RemoteDesktopPasteKeys* m_remoteDesktop = nullptr; // m_pasteKeys, where the portal presses the chord
    std::unique_ptr<Clipboard> m_clipboard;
    std::unique_ptr<PasteKeys> m_pasteKeys;
    std::unique_ptr<WaylandActiveApplication> m_waylandApplication;
};

} // namespace murmurly
