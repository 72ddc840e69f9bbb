#pragma once

#include "core/LoginItem.h"

namespace murmurly::testing {

// A login item whose state and failures the test sets; counts the changes asked of it.
class FakeLoginItem final : public LoginItem {
public:
    bool isEnabled() const override { return enabled; }
    std::optional<QString> registerItem() override {
        ++registrations;
        if (failure) return failure;
        enabled = true;
        return std::nullopt;
    }
    std::optional<QString> unregisterItem() override {
        ++unregistrations;
        if (failure) return failure;
        enabled = false;
        return std::nullopt;
    }

    bool enabled = false;
    std::optional<QString> failure; // every change fails with this description while set
    int registrations = 0;
    int unregistrations = 0;
};

} // namespace murmurly::testing
