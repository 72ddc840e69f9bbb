#pragma once

#include <QByteArray>

#include <cstdint>
#include <memory>

namespace murmurly::testing {

// A keyboard of the test's own on a Wayland compositor, through the virtual-keyboard protocol:
// keys go to the compositor as a user's keyboard gives them (key, then the new modifier state),
// and stay down until released or until the object goes away. US layout; keys are evdev codes.
class WaylandTestKeyboard {
public:
    static constexpr std::uint32_t escape = 1;
    static constexpr std::uint32_t leftControl = 29;
    static constexpr std::uint32_t leftShift = 42;
    static constexpr std::uint32_t v = 47;
    static constexpr std::uint32_t leftAlt = 56;
    static constexpr std::uint32_t rightAlt = 100;

    // `display` as WAYLAND_DISPLAY takes it. Connects and uploads the keymap (bounded).
    explicit WaylandTestKeyboard(const QByteArray& display);
    ~WaylandTestKeyboard();
    WaylandTestKeyboard(const WaylandTestKeyboard&) = delete;
    WaylandTestKeyboard& operator=(const WaylandTestKeyboard&) = delete;

    bool isOpen() const;
    // Each returns once the compositor has handled the key (bounded); false when it did not.
    bool press(std::uint32_t key);
    bool release(std::uint32_t key);
    bool isDown(std::uint32_t key) const;

private:
    struct Device;
    bool send(std::uint32_t key, bool down);
    std::unique_ptr<Device> m_device;
};

} // namespace murmurly::testing
