#pragma once

#include "settings/KeyEventTranslator.h"

namespace murmurly {

// Key events of the program's own windows on X11, named the way the system-wide key source names
// them: the X key code of the event goes through the same keymap, so a trigger recorded in the
// settings window is the key the monitor then watches.
class X11KeyEventTranslator final : public KeyEventTranslator {
public:
    std::optional<KeyEvent> translate(const QKeyEvent& event) const override;
};

} // namespace murmurly
