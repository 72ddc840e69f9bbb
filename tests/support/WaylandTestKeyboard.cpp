#include "WaylandTestKeyboard.h"

#include "platform/wayland/WaylandConnection.h"

#include "virtual-keyboard-unstable-v1-client-protocol.h"

#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include <cstring>
#include <set>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

namespace murmurly::testing {

using namespace std::chrono_literals;

struct WaylandTestKeyboard::Device {
    std::unique_ptr<WaylandConnection> connection;
    wl_seat* seat = nullptr;
    zwp_virtual_keyboard_manager_v1* manager = nullptr;
    zwp_virtual_keyboard_v1* keyboard = nullptr;
    xkb_context* context = nullptr;
    xkb_keymap* keymap = nullptr;
    xkb_state* state = nullptr;
    std::set<std::uint32_t> down;
    bool ready = false;

    ~Device() {
        if (state) xkb_state_unref(state);
        if (keymap) xkb_keymap_unref(keymap);
        if (context) xkb_context_unref(context);
        if (!connection) return;
        if (keyboard) zwp_virtual_keyboard_v1_destroy(keyboard);
        if (manager) wl_proxy_destroy(reinterpret_cast<wl_proxy*>(manager));
        if (seat) wl_proxy_destroy(reinterpret_cast<wl_proxy*>(seat));
        if (connection->isConnected()) connection->roundtrip();
    }
};

WaylandTestKeyboard::WaylandTestKeyboard(const QByteArray& display)
    : m_device(std::make_unique<Device>()) {
    Device& d = *m_device;
    d.connection = std::make_unique<WaylandConnection>(display);
    const auto seat = d.connection->global("wl_seat");
    const auto manager = d.connection->global("zwp_virtual_keyboard_manager_v1");
    if (!d.connection->isConnected() || !seat || !manager) return;
    d.context = xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES);
    const xkb_rule_names names{"evdev", "pc105", "us", "", ""};
    d.keymap =
        d.context ? xkb_keymap_new_from_names(d.context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS) : nullptr;
    if (!d.keymap) return;
    d.state = xkb_state_new(d.keymap);
    d.seat = static_cast<wl_seat*>(d.connection->bind(*seat, &wl_seat_interface, 1));
    d.manager = static_cast<zwp_virtual_keyboard_manager_v1*>(
        d.connection->bind(*manager, &zwp_virtual_keyboard_manager_v1_interface, 1));
    d.keyboard = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(d.manager, d.seat);
    char* text = xkb_keymap_get_as_string(d.keymap, XKB_KEYMAP_FORMAT_TEXT_V1);
    const std::size_t size = std::strlen(text) + 1;
    const int fd = memfd_create("test-keymap", MFD_CLOEXEC);
    const bool written = fd >= 0 && write(fd, text, size) == static_cast<ssize_t>(size);
    std::free(text);
    if (written)
        zwp_virtual_keyboard_v1_keymap(d.keyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd,
                                       static_cast<std::uint32_t>(size));
    if (fd >= 0) close(fd);
    // The first key right after the keymap can be lost: let the compositor take the keymap in.
    d.ready = written && d.connection->roundtrip(5s);
    std::this_thread::sleep_for(100ms);
}

WaylandTestKeyboard::~WaylandTestKeyboard() {
    if (!isOpen()) return;
    for (const std::uint32_t key : std::set<std::uint32_t>(m_device->down))
        release(key);
}

bool WaylandTestKeyboard::isOpen() const {
    return m_device->ready && m_device->connection->isConnected();
}

bool WaylandTestKeyboard::press(std::uint32_t key) {
    return send(key, true);
}

bool WaylandTestKeyboard::release(std::uint32_t key) {
    return send(key, false);
}

bool WaylandTestKeyboard::isDown(std::uint32_t key) const {
    return m_device->down.contains(key);
}

bool WaylandTestKeyboard::send(std::uint32_t key, bool down) {
    if (!isOpen()) return false;
    Device& d = *m_device;
    const auto now = static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                                    std::chrono::steady_clock::now().time_since_epoch())
                                                    .count());
    // A physical keyboard's state is updated before its key is handled: the new modifiers first.
    xkb_state_update_key(d.state, key + 8, down ? XKB_KEY_DOWN : XKB_KEY_UP);
    zwp_virtual_keyboard_v1_modifiers(d.keyboard, xkb_state_serialize_mods(d.state, XKB_STATE_MODS_DEPRESSED),
                                      xkb_state_serialize_mods(d.state, XKB_STATE_MODS_LATCHED),
                                      xkb_state_serialize_mods(d.state, XKB_STATE_MODS_LOCKED),
                                      xkb_state_serialize_layout(d.state, XKB_STATE_LAYOUT_EFFECTIVE));
    zwp_virtual_keyboard_v1_key(d.keyboard, now, key, down ? 1 : 0);
    if (down)
        d.down.insert(key);
    else
        d.down.erase(key);
    return d.connection->roundtrip(5s);
}

} // namespace murmurly::testing
