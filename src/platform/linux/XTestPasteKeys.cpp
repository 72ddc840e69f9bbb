#include "platform/linux/XTestPasteKeys.h"

#include "core/Defaults.h"
#include "platform/linux/X11FocusedWindow.h"
#include "platform/linux/X11OwnKeyEvents.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <vector>

namespace murmurly {

namespace {

bool isModifierKeysym(KeySym keysym) {
    switch (keysym) {
    case XK_Shift_L:
    case XK_Shift_R:
    case XK_Control_L:
    case XK_Control_R:
    case XK_Alt_L:
    case XK_Alt_R:
    case XK_Meta_L:
    case XK_Meta_R:
    case XK_Super_L:
    case XK_Super_R:
    case XK_Hyper_L:
    case XK_Hyper_R:
    case XK_ISO_Level3_Shift:
    case XK_Mode_switch:
        return true;
    default:
        return false; // lock keys are left alone: pressing them again would toggle them
    }
}

} // namespace

XTestPasteKeys::XTestPasteKeys(const Defaults& defaults, QByteArray displayName, X11OwnKeyEvents* ownEvents)
    : m_defaults(defaults)
    , m_displayName(std::move(displayName))
    , m_ownEvents(ownEvents) {
}

XTestPasteKeys::~XTestPasteKeys() {
    if (m_display) XCloseDisplay(m_display);
}

const QStringList& XTestPasteKeys::builtInTerminalClasses() {
    static const QStringList classes = {
        QStringLiteral("xterm"),
        QStringLiteral("uxterm"),
        QStringLiteral("urxvt"),
        QStringLiteral("rxvt"),
        QStringLiteral("gnome-terminal"),
        QStringLiteral("gnome-terminal-server"),
        QStringLiteral("org.gnome.terminal"),
        QStringLiteral("org.gnome.console"),
        QStringLiteral("kgx"),
        QStringLiteral("org.gnome.ptyxis"),
        QStringLiteral("konsole"),
        QStringLiteral("org.kde.konsole"),
        QStringLiteral("xfce4-terminal"),
        QStringLiteral("mate-terminal"),
        QStringLiteral("lxterminal"),
        QStringLiteral("qterminal"),
        QStringLiteral("terminator"),
        QStringLiteral("tilix"),
        QStringLiteral("com.gexperts.tilix"),
        QStringLiteral("alacritty"),
        QStringLiteral("kitty"),
        QStringLiteral("foot"),
        QStringLiteral("wezterm"),
        QStringLiteral("org.wezfurlong.wezterm"),
        QStringLiteral("st"),
        QStringLiteral("st-256color"),
        QStringLiteral("sakura"),
        QStringLiteral("terminology"),
        QStringLiteral("guake"),
        QStringLiteral("yakuake"),
        QStringLiteral("tilda"),
        QStringLiteral("eterm"),
        QStringLiteral("cool-retro-term"),
        QStringLiteral("x-terminal-emulator"),
    };
    return classes;
}

bool XTestPasteKeys::isTerminal(const QString& instanceName, const QString& className) const {
    const QStringList names = terminalNames(m_defaults);
    return names.contains(className.toLower()) || names.contains(instanceName.toLower());
}

bool XTestPasteKeys::isTerminalName(const Defaults& defaults, const QString& name) {
    return !name.isEmpty() && terminalNames(defaults).contains(name.toLower());
}

QStringList XTestPasteKeys::terminalNames(const Defaults& defaults) {
    QStringList names = builtInTerminalClasses();
    const QVariant configured = defaults.value(terminalClassesKey);
    // INI files hand a comma-separated value back as a list already.
    const QStringList extra =
        configured.typeId() == QMetaType::QStringList
            ? configured.toStringList()
            : defaults.stringValue(terminalClassesKey).value_or(QString()).split(QLatin1Char(','));
    for (const QString& name : extra)
        if (!name.trimmed().isEmpty()) names << name.trimmed().toLower();
    return names;
}

_XDisplay* XTestPasteKeys::display() {
    if (m_display) return m_display;
    Display* display = XOpenDisplay(m_displayName.isEmpty() ? nullptr : m_displayName.constData());
    if (!display) return nullptr;
    int event = 0, error = 0, major = 0, minor = 0;
    if (!XTestQueryExtension(display, &event, &error, &major, &minor)) {
        XCloseDisplay(display);
        return nullptr;
    }
    m_display = display;
    return m_display;
}

bool XTestPasteKeys::paste() {
    Display* x = display();
    if (!x) return false;
    const KeyCode control = XKeysymToKeycode(x, XK_Control_L);
    const KeyCode shift = XKeysymToKeycode(x, XK_Shift_L);
    const KeyCode v = XKeysymToKeycode(x, XK_v);
    if (!control || !shift || !v) return false;

    const auto focused = X11FocusedWindow::find(x);
    const bool terminal = focused && isTerminal(focused->instanceName, focused->className);

    // Modifiers held right now would turn the chord into another one.
    char keys[32] = {};
    XQueryKeymap(x, keys);
    std::vector<KeyCode> held;
    for (int code = 8; code < 256; ++code)
        if (((keys[code / 8] >> (code % 8)) & 1) &&
            isModifierKeysym(XkbKeycodeToKeysym(x, static_cast<KeyCode>(code), 0, 0)))
            held.push_back(static_cast<KeyCode>(code));

    std::vector<X11OwnKeyEvents::Event> chord;
    for (KeyCode code : held)
        chord.push_back({code, false});
    chord.push_back({control, true});
    if (terminal) chord.push_back({shift, true});
    chord.push_back({v, true});
    chord.push_back({v, false});
    if (terminal) chord.push_back({shift, false});
    chord.push_back({control, false});
    for (KeyCode code : held)
        chord.push_back({code, true});

    if (m_ownEvents) m_ownEvents->announce(chord.data(), chord.size());
    for (const X11OwnKeyEvents::Event& event : chord)
        XTestFakeKeyEvent(x, event.xKeyCode, event.pressed ? True : False, CurrentTime);
    XFlush(x);
    return true;
}

} // namespace murmurly
