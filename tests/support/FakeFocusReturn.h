#pragma once

#include "ManualClock.h"
#include "core/FocusReturn.h"

namespace murmurly::testing {

// Hands the focus back on the test's clock: each return takes `takes` of virtual time and then
// answers `succeeds`. Counts what it was asked.
class FakeFocusReturn final : public FocusReturn {
public:
    explicit FakeFocusReturn(ManualClock& clock)
        : m_clock(clock) {}

    void rememberFocusedWindow() override { ++remembered; }

    QCoro::Task<bool> returnFocus(std::chrono::milliseconds limit) override {
        ++returns;
        lastLimit = limit;
        if (takes.count() > 0) co_await m_clock.sleep(takes);
        ++returned;
        co_return succeeds;
    }

    std::chrono::milliseconds takes{0};
    bool succeeds = true;
    int remembered = 0;
    int returns = 0;  // returns begun
    int returned = 0; // returns finished
    std::chrono::milliseconds lastLimit{0};

private:
    ManualClock& m_clock;
};

} // namespace murmurly::testing
