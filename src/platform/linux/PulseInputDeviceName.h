#pragma once

#include "settings/InputDeviceName.h"

#include <chrono>

namespace murmurly {

// The description of the audio server's default source ("Built-in Audio Analog Stereo"), which
// is what a recording captures. Asks the server afresh on every call, within a short limit.
class PulseInputDeviceName final : public InputDeviceName {
public:
    explicit PulseInputDeviceName(std::chrono::milliseconds limit = std::chrono::milliseconds(1000));

    std::optional<QString> currentInputName() override;

private:
    std::chrono::milliseconds m_limit;
};

} // namespace murmurly
