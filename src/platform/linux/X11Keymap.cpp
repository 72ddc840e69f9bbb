#include "platform/linux/X11Keymap.h"

#include "hotkey/KeyCodes.h"

#include <X11/XF86keysym.h>
#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/keysym.h>

namespace murmurly {

namespace {

// Letters and digits by their place on a standard keyboard.
constexpr std::uint16_t letterCodes[26] = {
    0,  11, 8,  2,  14, 3, 5,  4,  34, 38, 40, 37, 46, // a … m
    45, 31, 35, 12, 15, 1, 17, 32, 9,  13, 7,  16, 6,  // n … z
};
constexpr std::uint16_t digitCodes[10] = {29, 18, 19, 20, 21, 23, 22, 26, 28, 25}; // 0 … 9
constexpr std::uint16_t functionCodes[20] = {122, 120, 99,  118, 96,  97,  98, 100, 101, 109,
                                             103, 111, 105, 107, 113, 106, 64, 79,  80,  90}; // F1 … F20

} // namespace

std::optional<std::uint16_t> X11Keymap::canonicalFromKeysym(unsigned long keysym) {
    if (keysym >= XK_a && keysym <= XK_z) return letterCodes[keysym - XK_a];
    if (keysym >= XK_A && keysym <= XK_Z) return letterCodes[keysym - XK_A];
    if (keysym >= XK_0 && keysym <= XK_9) return digitCodes[keysym - XK_0];
    if (keysym >= XK_F1 && keysym <= XK_F20) return functionCodes[keysym - XK_F1];
    switch (keysym) {
    // Modifiers, as in the binding tables. AltGr sits on the Right Alt key of the layouts that
    // have it; Meta and Hyper keys are Super keys on today's keymaps.
    case XK_Shift_L:
        return KeyCodes::leftShift;
    case XK_Shift_R:
        return KeyCodes::rightShift;
    case XK_Control_L:
        return KeyCodes::leftControl;
    case XK_Control_R:
        return KeyCodes::rightControl;
    case XK_Alt_L:
        return KeyCodes::leftOption;
    case XK_Alt_R:
    case XK_ISO_Level3_Shift:
    case XK_Mode_switch:
        return KeyCodes::rightOption;
    case XK_Super_L:
    case XK_Meta_L:
    case XK_Hyper_L:
        return KeyCodes::leftCommand;
    case XK_Super_R:
    case XK_Meta_R:
    case XK_Hyper_R:
        return KeyCodes::rightCommand;
    case XK_Caps_Lock:
        return KeyCodes::capsLock;
    case 0x100811D0:
        return KeyCodes::function; // XF86Fn, on keyboards whose Fn key reaches the system
    // The rest of the main block.
    case XK_Escape:
        return KeyCodes::escape;
    case XK_Return:
        return KeyCodes::returnKey;
    case XK_Tab:
    case XK_ISO_Left_Tab:
        return 48;
    case XK_space:
        return 49;
    case XK_BackSpace:
        return 51;
    case XK_grave:
        return 50;
    case XK_minus:
        return 27;
    case XK_equal:
        return 24;
    case XK_bracketleft:
        return 33;
    case XK_bracketright:
        return 30;
    case XK_backslash:
        return 42;
    case XK_semicolon:
        return 41;
    case XK_apostrophe:
        return 39;
    case XK_comma:
        return 43;
    case XK_period:
        return 47;
    case XK_slash:
        return 44;
    case XK_less:
        return 10; // the extra key beside the left Shift on ISO keyboards
    case XK_Menu:
        return 110;
    // Navigation.
    case XK_Insert:
    case XK_Help:
        return 114;
    case XK_Delete:
        return 117;
    case XK_Home:
        return 115;
    case XK_End:
        return 119;
    case XK_Prior:
        return 116;
    case XK_Next:
        return 121;
    case XK_Left:
        return 123;
    case XK_Right:
        return 124;
    case XK_Down:
        return 125;
    case XK_Up:
        return 126;
    // Keypad, by position whether Num Lock is on or off.
    case XK_KP_0:
    case XK_KP_Insert:
        return 82;
    case XK_KP_1:
    case XK_KP_End:
        return 83;
    case XK_KP_2:
    case XK_KP_Down:
        return 84;
    case XK_KP_3:
    case XK_KP_Next:
        return 85;
    case XK_KP_4:
    case XK_KP_Left:
        return 86;
    case XK_KP_5:
    case XK_KP_Begin:
        return 87;
    case XK_KP_6:
    case XK_KP_Right:
        return 88;
    case XK_KP_7:
    case XK_KP_Home:
        return 89;
    case XK_KP_8:
    case XK_KP_Up:
        return 91;
    case XK_KP_9:
    case XK_KP_Prior:
        return 92;
    case XK_KP_Decimal:
    case XK_KP_Delete:
    case XK_KP_Separator:
        return 65;
    case XK_KP_Multiply:
        return 67;
    case XK_KP_Add:
        return 69;
    case XK_Num_Lock:
    case XK_Clear:
        return 71;
    case XK_KP_Divide:
        return 75;
    case XK_KP_Enter:
        return 76;
    case XK_KP_Subtract:
        return 78;
    case XK_KP_Equal:
        return 81;
    // Media keys that have a place in the same space.
    case XF86XK_AudioRaiseVolume:
        return 72;
    case XF86XK_AudioLowerVolume:
        return 73;
    case XF86XK_AudioMute:
        return 74;
    default:
        return std::nullopt;
    }
}

std::uint64_t X11Keymap::modifierFlag(std::uint16_t canonical) {
    switch (canonical) {
    case KeyCodes::leftShift:
    case KeyCodes::rightShift:
        return ModifierFlags::shift;
    case KeyCodes::leftControl:
    case KeyCodes::rightControl:
        return ModifierFlags::control;
    case KeyCodes::leftOption:
    case KeyCodes::rightOption:
        return ModifierFlags::option;
    case KeyCodes::leftCommand:
    case KeyCodes::rightCommand:
        return ModifierFlags::command;
    case KeyCodes::function:
        return ModifierFlags::function;
    default:
        return 0;
    }
}

bool X11Keymap::isModifierKey(std::uint16_t canonical) {
    return modifierFlag(canonical) != 0 || canonical == KeyCodes::capsLock;
}

void X11Keymap::load(Display* display) {
    m_canonical.fill(-1);
    int minCode = 0;
    int maxCode = 0;
    XDisplayKeycodes(display, &minCode, &maxCode);
    for (int code = minCode; code <= maxCode && code < 256; ++code) {
        // The unmodified keysym of the first group names the key; a key that means nothing there
        // (a Latin letter on a second layout, say) is named by the first group where it does.
        std::optional<std::uint16_t> found;
        for (int group = 0; group < 4 && !found; ++group)
            for (int level = 0; level < 2 && !found; ++level) {
                const KeySym keysym = XkbKeycodeToKeysym(display, static_cast<KeyCode>(code), group, level);
                if (keysym != NoSymbol) found = canonicalFromKeysym(keysym);
            }
        if (found) m_canonical[static_cast<std::size_t>(code)] = *found;
    }
}

std::vector<unsigned char> X11Keymap::xKeyCodes(std::uint16_t canonical) const {
    std::vector<unsigned char> codes;
    for (std::size_t code = 0; code < m_canonical.size(); ++code)
        if (m_canonical[code] == canonical) codes.push_back(static_cast<KeyCode>(code));
    return codes;
}

} // namespace murmurly
