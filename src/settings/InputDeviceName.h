#pragma once

#include <QString>

#include <optional>

namespace murmurly {

// The name of the audio input a recording would use right now, as the desktop describes it.
class InputDeviceName {
public:
    virtual ~InputDeviceName() = default;

    // Nothing when there is no input to record from (or no audio server answers).
    virtual std::optional<QString> currentInputName() = 0;
};

} // namespace murmurly
