#pragma once

#include "output/PasteKeys.h"

#include <functional>

namespace murmurly::testing {

// Counts the chords; `onPaste` lets a test look at the world at the moment of the chord.
class FakePasteKeys final : public PasteKeys {
public:
    bool paste() override {
        ++attempts;
        if (!canMakeEvents) return false;
        ++chords;
        if (onPaste) onPaste();
        return true;
    }

    bool canMakeEvents = true;
    int attempts = 0;
    int chords = 0;
    std::function<void()> onPaste;
};

} // namespace murmurly::testing
