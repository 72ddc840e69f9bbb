#pragma once

#include <QString>

#include <cstdint>

namespace murmurly {

// Which desktop's words name the modifier keys: "Right Option" on macOS, "Right Alt" on Linux.
enum class KeyNaming { macOS, linuxDesktop };

namespace KeyNames {

// The naming of the platform this build runs on.
KeyNaming platform();

// The display name of a modifier key in the binding tables, or an empty string for other keys.
QString modifierName(std::int64_t keyCode, KeyNaming naming);

} // namespace KeyNames

} // namespace murmurly
