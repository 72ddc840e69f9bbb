#pragma once

#include "core/CaptureMode.h"

#include <QString>

namespace murmurly {

// Where one dictation is in its life. The order is relied on by comparisons.
enum class DictationState : int {
    idle = 0,
    recording = 1,
    transcribing = 2,
    cleaning = 3,
    inserting = 4,
};

// The status text the controller publishes; recomputed from the current state and capture mode
// on every read, so switching the mode during a recording changes the text at once.
QString stateLabel(DictationState state, CaptureMode mode);

} // namespace murmurly
