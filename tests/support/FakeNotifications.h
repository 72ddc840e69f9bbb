#pragma once

#include "app/Notifications.h"

#include <vector>

namespace murmurly::testing {

// Records every notification asked of it; takes each at once unless told the desktop has no
// notification service.
class FakeNotifications final : public Notifications {
public:
    struct Call {
        enum class Kind { show, withdraw };
        Kind kind;
        Slot slot;
        QString body; // for show

        friend bool operator==(const Call&, const Call&) = default;
    };

    void show(Slot slot, const QString& body, std::function<void()> delivered) override {
        calls.push_back({Call::Kind::show, slot, body});
        if (serviceAvailable && delivered) delivered();
    }
    void withdraw(Slot slot) override { calls.push_back({Call::Kind::withdraw, slot, {}}); }

    static Call shown(Slot slot, const QString& body) { return {Call::Kind::show, slot, body}; }
    static Call withdrawn(Slot slot) { return {Call::Kind::withdraw, slot, {}}; }

    std::vector<Call> calls;
    bool serviceAvailable = true;
};

} // namespace murmurly::testing
