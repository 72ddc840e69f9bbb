#include "platform/wayland/VirtualKeyboardPasteKeys.h"

#include "core/Log.h"
#include "platform/wayland/WaylandConnection.h"

#include "virtual-keyboard-unstable-v1-client-protocol.h"

#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include <cstring>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

namespace murmurly {

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t keyPressed = 1; // wl_keyboard key states
constexpr std::uint32_t keyReleased = 0;

// The compiled keymap this keyboard types with, and where its keys and modifiers are in it.
struct ChordKeymap {
    QByteArray text;                             // NUL-terminated, as the compositor maps it
    std::uint32_t control = 0, shift = 0, v = 0; // evdev key codes
    std::uint32_t controlMask = 0, shiftMask = 0;
};

std::optional<ChordKeymap> makeKeymap() {
    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES);
    if (!context) return std::nullopt;
    const xkb_rule_names names{"evdev", "pc105", "us", "", ""};
    xkb_keymap* keymap = xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
    std::optional<ChordKeymap> result;
    if (keymap) {
        ChordKeymap chord;
        // The key whose first level gives the keysym; xkb numbers keys eight above evdev.
        const auto keyOf = [keymap](xkb_keysym_t wanted) -> std::uint32_t {
            for (xkb_keycode_t code = xkb_keymap_min_keycode(keymap); code <= xkb_keymap_max_keycode(keymap);
                 ++code) {
                const xkb_keysym_t* syms = nullptr;
                const int count = xkb_keymap_key_get_syms_by_level(keymap, code, 0, 0, &syms);
                if (count == 1 && syms[0] == wanted && code >= 8) return code - 8;
            }
            return 0;
        };
        chord.control = keyOf(XKB_KEY_Control_L);
        chord.shift = keyOf(XKB_KEY_Shift_L);
        chord.v = keyOf(XKB_KEY_v);
        const xkb_mod_index_t control = xkb_keymap_mod_get_index(keymap, XKB_MOD_NAME_CTRL);
        const xkb_mod_index_t shift = xkb_keymap_mod_get_index(keymap, XKB_MOD_NAME_SHIFT);
        char* text = xkb_keymap_get_as_string(keymap, XKB_KEYMAP_FORMAT_TEXT_V1);
        if (text && chord.control && chord.shift && chord.v && control != XKB_MOD_INVALID &&
            shift != XKB_MOD_INVALID) {
            chord.text = QByteArray(text, static_cast<qsizetype>(std::strlen(text) + 1));
            chord.controlMask = 1u << control;
            chord.shiftMask = 1u << shift;
            result = chord;
        }
        std::free(text);
        xkb_keymap_unref(keymap);
    }
    xkb_context_unref(context);
    return result;
}

std::uint32_t millisecondsNow() {
    return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
}

} // namespace

struct VirtualKeyboardPasteKeys::Keyboard {
    std::unique_ptr<WaylandConnection> connection;
    wl_seat* seat = nullptr;
    zwp_virtual_keyboard_manager_v1* manager = nullptr;
    zwp_virtual_keyboard_v1* keyboard = nullptr;
    ChordKeymap keymap;

    ~Keyboard() {
        if (!connection) return;
        const bool usable = connection->isConnected();
        if (keyboard)
            usable ? zwp_virtual_keyboard_v1_destroy(keyboard)
                   : wl_proxy_destroy(reinterpret_cast<wl_proxy*>(keyboard));
        if (manager) wl_proxy_destroy(reinterpret_cast<wl_proxy*>(manager));
        if (seat) wl_proxy_destroy(reinterpret_cast<wl_proxy*>(seat));
        if (usable) wl_display_flush(connection->display());
    }

    bool usable() const { return keyboard && connection->isConnected(); }

    void key(std::uint32_t code, std::uint32_t state) {
        zwp_virtual_keyboard_v1_key(keyboard, millisecondsNow(), code, state);
    }
    void modifiers(std::uint32_t depressed) {
        zwp_virtual_keyboard_v1_modifiers(keyboard, depressed, 0, 0, 0);
    }
};

VirtualKeyboardPasteKeys::VirtualKeyboardPasteKeys(const QByteArray& socket)
    : m_socket(socket) {
    ensureKeyboard();
}

VirtualKeyboardPasteKeys::~VirtualKeyboardPasteKeys() = default;

bool VirtualKeyboardPasteKeys::isAvailable() const {
    return m_keyboard && m_keyboard->usable();
}

bool VirtualKeyboardPasteKeys::ensureKeyboard() {
    if (m_keyboard && m_keyboard->usable()) return true;
    m_keyboard.reset();
    auto made = std::make_unique<Keyboard>();
    made->connection = std::make_unique<WaylandConnection>(m_socket);
    if (!made->connection->isConnected()) return false;
    const auto seatGlobal = made->connection->global("wl_seat");
    const auto managerGlobal = made->connection->global("zwp_virtual_keyboard_manager_v1");
    if (!seatGlobal || !managerGlobal) return false;
    const auto keymap = makeKeymap();
    if (!keymap) {
        qCWarning(lcApp, "Could not compile a keymap for the virtual keyboard (is xkb-data installed?)");
        return false;
    }
    made->keymap = *keymap;
    made->seat = static_cast<wl_seat*>(made->connection->bind(*seatGlobal, &wl_seat_interface, 1));
    made->manager = static_cast<zwp_virtual_keyboard_manager_v1*>(
        made->connection->bind(*managerGlobal, &zwp_virtual_keyboard_manager_v1_interface, 1));
    made->keyboard = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(made->manager, made->seat);

    const int fd = memfd_create("murmurly-keymap", MFD_CLOEXEC);
    if (fd < 0) return false;
    const auto size = static_cast<std::size_t>(made->keymap.text.size());
    const bool written = write(fd, made->keymap.text.constData(), size) == static_cast<ssize_t>(size);
    if (written)
        zwp_virtual_keyboard_v1_keymap(made->keyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd,
                                       static_cast<std::uint32_t>(size));
    close(fd); // the request carries its own copy of the descriptor
    // A compositor that refuses virtual keyboards answers with a protocol error here.
    if (!written || !made->connection->roundtrip()) return false;
    std::this_thread::sleep_for(keymapSettleTime);
    m_keyboard = std::move(made);
    return true;
}

bool VirtualKeyboardPasteKeys::paste() {
    if (!ensureKeyboard()) return false;
    Keyboard& k = *m_keyboard;
    k.connection->dispatchWaiting();
    const bool terminal = m_isTerminal && m_isTerminal();
    const std::uint32_t chord = k.keymap.controlMask | (terminal ? k.keymap.shiftMask : 0);
    k.key(k.keymap.control, keyPressed);
    if (terminal) k.key(k.keymap.shift, keyPressed);
    k.modifiers(chord);
    k.key(k.keymap.v, keyPressed);
    k.key(k.keymap.v, keyReleased);
    if (terminal) k.key(k.keymap.shift, keyReleased);
    k.key(k.keymap.control, keyReleased);
    k.modifiers(0);
    if (wl_display_flush(k.connection->display()) < 0 && errno != EAGAIN) {
        m_keyboard.reset();
        return false;
    }
    return k.connection->isConnected();
}

} // namespace murmurly
