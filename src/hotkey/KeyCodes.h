#pragma once

#include <cstdint>

// The one canonical key-code space used by bindings, tables and the monitor on every platform
// (the virtual key codes of a Mac keyboard). Platform key sources translate into it, so stored
// bindings mean the same key everywhere.
namespace murmurly::KeyCodes {

inline constexpr std::int64_t rightCommand = 54;
inline constexpr std::int64_t leftCommand = 55;
inline constexpr std::int64_t leftShift = 56;
inline constexpr std::int64_t capsLock = 57;
inline constexpr std::int64_t leftOption = 58;
inline constexpr std::int64_t leftControl = 59;
inline constexpr std::int64_t rightShift = 60;
inline constexpr std::int64_t rightOption = 61;
inline constexpr std::int64_t rightControl = 62;
inline constexpr std::int64_t function = 63;
inline constexpr std::int64_t escape = 53;
inline constexpr std::int64_t returnKey = 36;
inline constexpr std::int64_t f5 = 96;
inline constexpr std::int64_t f13 = 105;

} // namespace murmurly::KeyCodes

// Device-independent modifier flag bits carried by key events.
namespace murmurly::ModifierFlags {

inline constexpr std::uint64_t shift = 0x20000;
inline constexpr std::uint64_t control = 0x40000;
inline constexpr std::uint64_t option = 0x80000;   // Alt on Linux
inline constexpr std::uint64_t command = 0x100000; // Super on Linux
inline constexpr std::uint64_t function = 0x800000;

} // namespace murmurly::ModifierFlags
