#pragma once

namespace murmurly {

// Synthesises the paste chord for the focused application (Ctrl+V on Linux, Command-V on a Mac).
class PasteKeys {
public:
    virtual ~PasteKeys() = default;

    // Posts key-down and key-up of the chord, one right after the other. False when the key
    // events cannot be made; nothing is posted then.
    virtual bool paste() = 0;
};

} // namespace murmurly
