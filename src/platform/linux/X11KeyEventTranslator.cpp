#include "platform/linux/X11KeyEventTranslator.h"

#include "hotkey/KeyCodes.h"
#include "platform/linux/X11Keymap.h"

#include <QGuiApplication>
#include <QKeyEvent>

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
// Xlib's event-type macros collide with Qt's event types.
#undef KeyPress
#undef KeyRelease

namespace murmurly {

namespace {

std::uint64_t flagsOf(Qt::KeyboardModifiers modifiers) {
    std::uint64_t flags = 0;
    if (modifiers & Qt::ShiftModifier) flags |= ModifierFlags::shift;
    if (modifiers & Qt::ControlModifier) flags |= ModifierFlags::control;
    if (modifiers & Qt::AltModifier) flags |= ModifierFlags::option;
    if (modifiers & Qt::MetaModifier) flags |= ModifierFlags::command;
    return flags;
}

// The character an unmodified keysym types: Latin-1 keysyms are their own code points, Unicode
// keysyms carry theirs; function and modifier keys type nothing.
std::optional<QString> textOf(KeySym keysym) {
    if ((keysym >= 0x20 && keysym <= 0x7e) || (keysym >= 0xa0 && keysym <= 0xff))
        return QString(QChar(static_cast<char16_t>(keysym)));
    if ((keysym & 0xff000000) == 0x01000000) {
        const char32_t codePoint = static_cast<char32_t>(keysym & 0x00ffffff);
        return QString::fromUcs4(&codePoint, 1);
    }
    return std::nullopt;
}

} // namespace

std::optional<KeyEvent> X11KeyEventTranslator::translate(const QKeyEvent& event) const {
    const bool press = event.type() == QEvent::KeyPress;
    if (!press && event.type() != QEvent::KeyRelease) return std::nullopt;
    const quint32 xKeyCode = event.nativeScanCode();
    if (xKeyCode == 0 || xKeyCode > 255) return std::nullopt;
    const auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    Display* display = x11 ? x11->display() : nullptr;
    if (!display) return std::nullopt;

    // Read afresh: a recording is rare, and the user may have switched layouts since the last.
    X11Keymap keymap;
    keymap.load(display);
    const std::optional<std::uint16_t> canonical = keymap.canonical(xKeyCode);
    if (!canonical) return std::nullopt;

    KeyEvent result;
    result.keyCode = *canonical;
    result.flags = flagsOf(event.modifiers());
    if (X11Keymap::isModifierKey(*canonical)) {
        // X reports the modifier state from before the event; the key's own bit is what changed.
        const std::uint64_t own = X11Keymap::modifierFlag(*canonical);
        result.type = KeyEvent::Type::flagsChanged;
        result.flags = press ? (result.flags | own) : (result.flags & ~own);
        return result;
    }
    result.type = press ? KeyEvent::Type::keyDown : KeyEvent::Type::keyUp;
    result.charactersIgnoringModifiers =
        textOf(XkbKeycodeToKeysym(display, static_cast<KeyCode>(xKeyCode), 0, 0));
    return result;
}

} // namespace murmurly
