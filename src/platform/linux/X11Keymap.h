#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

struct _XDisplay;

namespace murmurly {

// The X server's key codes seen in the canonical key-code space. Each X key is named by the
// keysym it produces without modifiers, so the translation follows whatever layout and keymap the
// user has (a key remapped to Control is a Control key here too).
class X11Keymap {
public:
    // The canonical code of a keysym, or nothing for keys outside a standard keyboard.
    static std::optional<std::uint16_t> canonicalFromKeysym(unsigned long keysym);
    // The modifier flag bit a canonical modifier key sets, 0 for other keys (Caps Lock included).
    static std::uint64_t modifierFlag(std::uint16_t canonical);
    // Whether events of this key are flag changes rather than key-downs and key-ups.
    static bool isModifierKey(std::uint16_t canonical);

    // Reads the display's keymap; called again when the keymap changes.
    void load(_XDisplay* display);

    std::optional<std::uint16_t> canonical(unsigned int xKeyCode) const {
        if (xKeyCode >= m_canonical.size() || m_canonical[xKeyCode] < 0) return std::nullopt;
        return static_cast<std::uint16_t>(m_canonical[xKeyCode]);
    }
    // Every X key code that produces the canonical key (usually one).
    std::vector<unsigned char> xKeyCodes(std::uint16_t canonical) const;

private:
    std::array<std::int32_t, 256> m_canonical{};
};

} // namespace murmurly
