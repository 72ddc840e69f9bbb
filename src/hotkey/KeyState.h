#pragma once

#include <cstdint>

namespace murmurly {

// The live state of the keyboard, read when asked (the recording watchdog uses it to notice a
// trigger release whose event was lost).
class KeyState {
public:
    virtual ~KeyState() = default;

    // Whether the key with this canonical key code is down right now.
    virtual bool isKeyDown(std::int64_t keyCode) const = 0;
};

} // namespace murmurly
