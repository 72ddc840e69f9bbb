#pragma once

#include "hotkey/KeyEvent.h"
#include "hotkey/KeyNames.h"

#include <QByteArray>
#include <QHashFunctions>
#include <QString>

#include <cstdint>
#include <map>
#include <optional>

namespace murmurly {

class Defaults;

// The single trigger: one physical modifier key or one ordinary key.
struct HotkeyBinding {
    enum class Kind : std::uint8_t { modifier, key };

    struct Modifier {
        std::uint64_t flagMask = 0;
        QString displayName;
    };

    Kind kind = Kind::modifier;
    std::int64_t keyCode = 0;
    std::uint64_t flagMask = 0; // the device-independent flag bit of a modifier; 0 for a key
    QString displayName;

    static inline const QString defaultsKey = QStringLiteral("hotkeyBinding");

    // The modifier keys that can be a trigger, by key code. Caps Lock is deliberately absent.
    static const std::map<std::int64_t, Modifier>& modifiers(KeyNaming naming = KeyNames::platform());
    // F1 to F15 by key code.
    static const std::map<std::int64_t, QString>& functionKeys();

    // Right Option on macOS, named "Right Alt" on Linux.
    static HotkeyBinding defaultBinding(KeyNaming naming = KeyNames::platform());

    // A binding from one captured key event: a key-down of any key, or the press of a modifier
    // from the table. Modifier releases and other events give nothing.
    static std::optional<HotkeyBinding> from(const KeyEvent& event, KeyNaming naming = KeyNames::platform());

    // A key binding outside F1–F15 normally types a character.
    bool isTypeable() const;

    static QString rawValue(Kind kind);
    static std::optional<Kind> kindFromRawValue(const QString& raw);

    // {"kind":…,"keyCode":…,"flagMask":…,"displayName":…} in that order; all four required.
    QByteArray toJson() const;
    static std::optional<HotkeyBinding> fromJson(const QByteArray& json);

    // The stored binding, or the default when nothing valid is stored (silently).
    static HotkeyBinding load(const Defaults& defaults, KeyNaming naming = KeyNames::platform());
    void save(Defaults& defaults) const;

    friend bool operator==(const HotkeyBinding&, const HotkeyBinding&) = default;
};

size_t qHash(const HotkeyBinding& binding, size_t seed = 0) noexcept;

} // namespace murmurly
