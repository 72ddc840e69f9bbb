#pragma once

#include "hotkey/KeyEventSource.h"

#include <atomic>

namespace murmurly {

// The trigger on a Wayland desktop, where no program may watch the keyboard: the compositor reads
// the keys and its key bindings run `murmurly --press`, `--release` and `--cancel`, which reach the
// controller over the session bus. This source therefore delivers no events of its own; it runs
// (so the controller arms the trigger) and swallows nothing, the compositor's bindings doing that.
class CompositorBindingKeySource final : public KeyEventSource {
public:
    bool start(KeyEventSink&) override {
        m_running = true;
        return true;
    }
    void stop() override { m_running = false; }
    bool isRunning() const override { return m_running; }
    void setSwallowedKeys(const SwallowedKeys&) override {}

private:
    std::atomic<bool> m_running{false};
};

} // namespace murmurly
