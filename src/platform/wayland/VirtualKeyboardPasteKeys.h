#pragma once

#include "output/PasteKeys.h"

#include <QByteArray>

#include <chrono>
#include <functional>
#include <memory>

namespace murmurly {

class WaylandConnection;

// The paste chord on Wayland through the compositor's virtual-keyboard protocol: a keyboard of
// this program's own, with a US keymap of its own, so the chord is Ctrl+V (Ctrl+Shift+V for a
// terminal) whatever layout the user types with. Its modifier state is its own too: keys the user
// holds on the real keyboard (the trigger, say) do not change the chord. Used on the main thread.
class VirtualKeyboardPasteKeys final : public PasteKeys {
public:
    // After the keymap is uploaded, the compositor and the focused application must have taken
    // it in before the first key, or that key can be lost.
    static constexpr std::chrono::milliseconds keymapSettleTime{50};

    // `socket` as for WaylandConnection: empty means WAYLAND_DISPLAY. Connects at once.
    explicit VirtualKeyboardPasteKeys(const QByteArray& socket = {});
    ~VirtualKeyboardPasteKeys() override;
    VirtualKeyboardPasteKeys(const VirtualKeyboardPasteKeys&) = delete;
    VirtualKeyboardPasteKeys& operator=(const VirtualKeyboardPasteKeys&) = delete;

    // Whether the compositor gave this program a virtual keyboard.
    bool isAvailable() const;

    // Asked at each paste: whether the focused application is a terminal (Ctrl+Shift+V).
    void setTerminalCheck(std::function<bool()> isTerminal) { m_isTerminal = std::move(isTerminal); }

    // Reconnects first when the compositor connection broke since the last chord.
    bool paste() override;

private:
    struct Keyboard;
    bool ensureKeyboard();

    QByteArray m_socket;
    std::unique_ptr<Keyboard> m_keyboard;
    std::function<bool()> m_isTerminal;
};

} // namespace murmurly
