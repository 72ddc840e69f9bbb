#pragma once

#include <cstdint>

namespace murmurly {

// What the trigger did with one key event.
enum class HotkeyEdge : std::uint8_t { none, press, release, cancel };

struct HotkeyVerdict {
    bool swallow = false;
    HotkeyEdge edge = HotkeyEdge::none;

    friend bool operator==(const HotkeyVerdict&, const HotkeyVerdict&) = default;
};

} // namespace murmurly
