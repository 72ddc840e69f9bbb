#pragma once

#include <QString>

#include <optional>

namespace murmurly {

// Starting Murmurly when the user logs in: one registration for the application, owned by the
// desktop (an autostart entry on Linux).
class LoginItem {
public:
    virtual ~LoginItem() = default;

    // Whether the desktop will start the application at the next login.
    virtual bool isEnabled() const = 0;

    // Each returns the failure's description, or nothing when the change was made.
    virtual std::optional<QString> registerItem() = 0;
    virtual std::optional<QString> unregisterItem() = 0;
};

} // namespace murmurly
