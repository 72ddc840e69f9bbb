#pragma once

#include <QString>

#include <cstdint>
#include <optional>

namespace murmurly {

// A keyboard event as every platform's key source delivers it: canonical key code and
// device-independent modifier flags.
struct KeyEvent {
    enum class Type { keyDown, keyUp, flagsChanged, other };

    Type type = Type::other;
    std::uint16_t keyCode = 0;
    std::optional<QString> charactersIgnoringModifiers; // the text the key types, modifiers ignored
    std::uint64_t flags = 0;
};

} // namespace murmurly
