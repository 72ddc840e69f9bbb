#pragma once

#include <QString>

#include <optional>

namespace murmurly {

// The application that has the keyboard focus: a stable identifier (recorded with a dictation)
// and the name shown to the user.
struct FocusedApplication {
    QString identifier;
    QString displayName;

    friend bool operator==(const FocusedApplication&, const FocusedApplication&) = default;
};

class ActiveApplication {
public:
    virtual ~ActiveApplication() = default;

    // Absent when nothing has the focus or the focused window belongs to no known application.
    virtual std::optional<FocusedApplication> focused() const = 0;
};

} // namespace murmurly
