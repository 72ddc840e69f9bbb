#include "core/CaptureMode.h"

namespace murmurly::CaptureModes {

QString rawValue(CaptureMode mode) {
    return mode == CaptureMode::toggle ? QStringLiteral("toggle") : QStringLiteral("hold");
}

QString title(CaptureMode mode) {
    return mode == CaptureMode::toggle ? QStringLiteral("Toggle (tap to start/stop)")
                                       : QStringLiteral("Hold to talk");
}

QString helpText(CaptureMode mode) {
    return mode == CaptureMode::toggle
               ? QStringLiteral("Tap the trigger to start, tap again to stop. Press Esc to cancel.")
               : QStringLiteral("Hold the trigger to dictate; release to insert. Press Esc to cancel.");
}

CaptureMode fromStored(const std::optional<QString>& stored) {
    return stored && *stored == QLatin1String("toggle") ? CaptureMode::toggle : CaptureMode::hold;
}

} // namespace murmurly::CaptureModes
