#include "core/DictationState.h"

namespace murmurly {

QString stateLabel(DictationState state, CaptureMode mode) {
    switch (state) {
    case DictationState::recording:
        return mode == CaptureMode::toggle ? QStringLiteral("Listening\u2026 (tap to stop)")
                                           : QStringLiteral("Recording\u2026");
    case DictationState::idle:
        return QStringLiteral("Idle");
    case DictationState::transcribing:
        return QStringLiteral("Transcribing\u2026");
    case DictationState::cleaning:
        return QStringLiteral("Cleaning up\u2026");
    case DictationState::inserting:
        return QStringLiteral("Inserting\u2026");
    }
    return QStringLiteral("Idle");
}

} // namespace murmurly
