#pragma once

#include <QString>

#include <array>
#include <optional>

namespace murmurly {

// How the trigger key is interpreted. Persisted by raw value under "captureMode".
enum class CaptureMode {
    hold,
    toggle,
};

namespace CaptureModes {

inline constexpr std::array<CaptureMode, 2> allCases{CaptureMode::hold, CaptureMode::toggle};

QString rawValue(CaptureMode mode);
QString title(CaptureMode mode);
QString helpText(CaptureMode mode);

// Lenient: exactly "toggle" gives toggle; anything else, or nothing, gives hold.
CaptureMode fromStored(const std::optional<QString>& stored);

} // namespace CaptureModes

} // namespace murmurly
