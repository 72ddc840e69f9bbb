#pragma once

#include "hotkey/KeyState.h"

#include <set>

namespace murmurly::testing {

// A keyboard whose held keys the test sets.
class FakeKeyState final : public KeyState {
public:
    bool isKeyDown(std::int64_t keyCode) const override { return down.contains(keyCode); }

    std::set<std::int64_t> down;
};

} // namespace murmurly::testing
