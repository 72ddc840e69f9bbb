#include "hotkey/HotkeyBinding.h"

#include "core/Defaults.h"
#include "core/JsonFields.h"
#include "hotkey/KeyCodes.h"

#include <array>

namespace murmurly {

namespace {

std::map<std::int64_t, HotkeyBinding::Modifier> makeModifiers(KeyNaming naming) {
    std::map<std::int64_t, HotkeyBinding::Modifier> table;
    const auto add = [&](std::int64_t code, std::uint64_t mask) {
        table.emplace(code, HotkeyBinding::Modifier{mask, KeyNames::modifierName(code, naming)});
    };
    add(KeyCodes::rightCommand, ModifierFlags::command);
    add(KeyCodes::leftCommand, ModifierFlags::command);
    add(KeyCodes::leftOption, ModifierFlags::option);
    add(KeyCodes::rightOption, ModifierFlags::option);
    add(KeyCodes::leftShift, ModifierFlags::shift);
    add(KeyCodes::rightShift, ModifierFlags::shift);
    add(KeyCodes::leftControl, ModifierFlags::control);
    add(KeyCodes::rightControl, ModifierFlags::control);
    add(KeyCodes::function, ModifierFlags::function);
    return table;
}

} // namespace

const std::map<std::int64_t, HotkeyBinding::Modifier>& HotkeyBinding::modifiers(KeyNaming naming) {
    static const auto mac = makeModifiers(KeyNaming::macOS);
    static const auto linuxDesktop = makeModifiers(KeyNaming::linuxDesktop);
    return naming == KeyNaming::macOS ? mac : linuxDesktop;
}

const std::map<std::int64_t, QString>& HotkeyBinding::functionKeys() {
    static const std::map<std::int64_t, QString> table{
        {122, QStringLiteral("F1")},  {120, QStringLiteral("F2")},  {99, QStringLiteral("F3")},
        {118, QStringLiteral("F4")},  {96, QStringLiteral("F5")},   {97, QStringLiteral("F6")},
        {98, QStringLiteral("F7")},   {100, QStringLiteral("F8")},  {101, QStringLiteral("F9")},
        {109, QStringLiteral("F10")}, {103, QStringLiteral("F11")}, {111, QStringLiteral("F12")},
        {105, QStringLiteral("F13")}, {107, QStringLiteral("F14")}, {113, QStringLiteral("F15")},
    };
    return table;
}

HotkeyBinding HotkeyBinding::defaultBinding(KeyNaming naming) {
    return {Kind::modifier, KeyCodes::rightOption, ModifierFlags::option,
            KeyNames::modifierName(KeyCodes::rightOption, naming)};
}

std::optional<HotkeyBinding> HotkeyBinding::from(const KeyEvent& event, KeyNaming naming) {
    const std::int64_t code = event.keyCode;
    switch (event.type) {
    case KeyEvent::Type::keyDown: {
        const auto& functions = functionKeys();
        if (const auto it = functions.find(code); it != functions.end())
            return HotkeyBinding{Kind::key, code, 0, it->second};
        const QString name = event.charactersIgnoringModifiers
                                 ? event.charactersIgnoringModifiers->toUpper()
                                 : QStringLiteral("Key ") + QString::number(code);
        return HotkeyBinding{Kind::key, code, 0, name};
    }
    case KeyEvent::Type::flagsChanged: {
        const auto& table = modifiers(naming);
        const auto it = table.find(code);
        if (it == table.end()) return std::nullopt;
        static constexpr std::array order{ModifierFlags::command, ModifierFlags::option, ModifierFlags::shift,
                                          ModifierFlags::control, ModifierFlags::function};
        for (const std::uint64_t bit : order) {
            if (it->second.flagMask & bit) {
                if (!(event.flags & bit)) return std::nullopt; // the modifier's release
                return HotkeyBinding{Kind::modifier, code, it->second.flagMask, it->second.displayName};
            }
        }
        return std::nullopt;
    }
    case KeyEvent::Type::keyUp:
    case KeyEvent::Type::other:
        break;
    }
    return std::nullopt;
}

bool HotkeyBinding::isTypeable() const {
    return kind == Kind::key && !functionKeys().contains(keyCode);
}

QString HotkeyBinding::rawValue(Kind kind) {
    return kind == Kind::modifier ? QStringLiteral("modifier") : QStringLiteral("key");
}

std::optional<HotkeyBinding::Kind> HotkeyBinding::kindFromRawValue(const QString& raw) {
    if (raw == QLatin1String("modifier")) return Kind::modifier;
    if (raw == QLatin1String("key")) return Kind::key;
    return std::nullopt;
}

QByteArray HotkeyBinding::toJson() const {
    nlohmann::ordered_json object;
    object["kind"] = JsonFields::utf8(rawValue(kind));
    object["keyCode"] = keyCode;
    object["flagMask"] = flagMask;
    object["displayName"] = JsonFields::utf8(displayName);
    return JsonFields::dump(object);
}

std::optional<HotkeyBinding> HotkeyBinding::fromJson(const QByteArray& json) {
    const auto object = JsonFields::parse(json);
    if (!object.is_object()) return std::nullopt;
    const auto kindText = JsonFields::string(object, "kind");
    const auto keyCode = JsonFields::int64(object, "keyCode");
    const auto flagMask = JsonFields::uint64(object, "flagMask");
    const auto displayName = JsonFields::string(object, "displayName");
    if (!kindText || !keyCode || !flagMask || !displayName) return std::nullopt;
    const auto kind = kindFromRawValue(*kindText);
    if (!kind) return std::nullopt;
    return HotkeyBinding{*kind, *keyCode, *flagMask, *displayName};
}

HotkeyBinding HotkeyBinding::load(const Defaults& defaults, KeyNaming naming) {
    if (const auto stored = defaults.bytesValue(defaultsKey)) {
        if (auto binding = fromJson(*stored)) return *binding;
    }
    return defaultBinding(naming);
}

void HotkeyBinding::save(Defaults& defaults) const {
    defaults.setBytes(defaultsKey, toJson());
}

size_t qHash(const HotkeyBinding& binding, size_t seed) noexcept {
    return qHashMulti(seed, static_cast<int>(binding.kind), binding.keyCode, binding.flagMask,
                      binding.displayName);
}

} // namespace murmurly
