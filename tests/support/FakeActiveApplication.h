#pragma once

#include "core/ActiveApplication.h"

namespace murmurly::testing {

// The focused application is whatever the test says.
class FakeActiveApplication final : public ActiveApplication {
public:
    std::optional<FocusedApplication> focused() const override { return application; }

    std::optional<FocusedApplication> application;
};

} // namespace murmurly::testing
