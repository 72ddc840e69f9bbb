#include "hotkey/HotkeyBinding.h"
#include "MemoryDefaults.h"
#include "hotkey/KeyCodes.h"

#include <QSet>

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::MemoryDefaults;

namespace {

KeyEvent flagsChanged(std::uint16_t code, std::uint64_t flags) {
    return {KeyEvent::Type::flagsChanged, code, std::nullopt, flags};
}

KeyEvent keyDown(std::uint16_t code, std::optional<QString> characters, std::uint64_t flags = 0) {
    return {KeyEvent::Type::keyDown, code, std::move(characters), flags};
}

} // namespace

TEST(HotkeyBinding, ModifierTableOnMacOSHasExactlyTheNineKeys) {
    const auto& table = HotkeyBinding::modifiers(KeyNaming::macOS);
    const std::map<std::int64_t, std::pair<std::uint64_t, QString>> expected{
        {54, {0x100000, QStringLiteral("Right Command")}},
        {55, {0x100000, QStringLiteral("Left Command")}},
        {58, {0x80000, QStringLiteral("Left Option")}},
        {61, {0x80000, QStringLiteral("Right Option")}},
        {56, {0x20000, QStringLiteral("Left Shift")}},
        {60, {0x20000, QStringLiteral("Right Shift")}},
        {59, {0x40000, QStringLiteral("Left Control")}},
        {62, {0x40000, QStringLiteral("Right Control")}},
        {63, {0x800000, QStringLiteral("Fn")}},
    };
    ASSERT_EQ(table.size(), expected.size());
    for (const auto& [code, row] : expected) {
        ASSERT_TRUE(table.contains(code)) << code;
        EXPECT_EQ(table.at(code).flagMask, row.first) << code;
        EXPECT_EQ(table.at(code).displayName, row.second) << code;
    }
}

TEST(HotkeyBinding, ModifierTableOnLinuxNamesAltAndSuper) {
    const auto& table = HotkeyBinding::modifiers(KeyNaming::linuxDesktop);
    const std::map<std::int64_t, std::pair<std::uint64_t, QString>> expected{
        {54, {0x100000, QStringLiteral("Right Super")}}, {55, {0x100000, QStringLiteral("Left Super")}},
        {58, {0x80000, QStringLiteral("Left Alt")}},     {61, {0x80000, QStringLiteral("Right Alt")}},
        {56, {0x20000, QStringLiteral("Left Shift")}},   {60, {0x20000, QStringLiteral("Right Shift")}},
        {59, {0x40000, QStringLiteral("Left Control")}}, {62, {0x40000, QStringLiteral("Right Control")}},
        {63, {0x800000, QStringLiteral("Fn")}},
    };
    ASSERT_EQ(table.size(), expected.size());
    for (const auto& [code, row] : expected) {
        ASSERT_TRUE(table.contains(code)) << code;
        EXPECT_EQ(table.at(code).flagMask, row.first) << code;
        EXPECT_EQ(table.at(code).displayName, row.second) << code;
    }
}

TEST(HotkeyBinding, CapsLockIsNotInTheModifierTable) {
    EXPECT_FALSE(HotkeyBinding::modifiers(KeyNaming::macOS).contains(KeyCodes::capsLock));
    EXPECT_FALSE(HotkeyBinding::modifiers(KeyNaming::linuxDesktop).contains(KeyCodes::capsLock));
}

TEST(HotkeyBinding, FunctionKeyTableHasF1ToF15) {
    const std::map<std::int64_t, QString> expected{
        {122, "F1"},  {120, "F2"},  {99, "F3"},   {118, "F4"},  {96, "F5"},
        {97, "F6"},   {98, "F7"},   {100, "F8"},  {101, "F9"},  {109, "F10"},
        {103, "F11"}, {111, "F12"}, {105, "F13"}, {107, "F14"}, {113, "F15"},
    };
    EXPECT_EQ(HotkeyBinding::functionKeys(), expected);
}

TEST(HotkeyBinding, DefaultIsRightOptionNamedPerPlatform) {
    const HotkeyBinding mac = HotkeyBinding::defaultBinding(KeyNaming::macOS);
    EXPECT_EQ(mac.kind, HotkeyBinding::Kind::modifier);
    EXPECT_EQ(mac.keyCode, 61);
    EXPECT_EQ(mac.flagMask, 0x80000u);
    EXPECT_EQ(mac.displayName, QStringLiteral("Right Option"));
    EXPECT_EQ(HotkeyBinding::defaultBinding(KeyNaming::linuxDesktop).displayName,
              QStringLiteral("Right Alt"));
#ifndef Q_OS_MACOS
    EXPECT_EQ(HotkeyBinding::defaultBinding().displayName, QStringLiteral("Right Alt"));
#endif
}

TEST(HotkeyBinding, PressingRightOptionGivesTheModifierBindingAndReleasingGivesNothing) {
    const auto pressed = HotkeyBinding::from(flagsChanged(61, ModifierFlags::option), KeyNaming::macOS);
    ASSERT_TRUE(pressed);
    EXPECT_EQ(
        pressed->toJson(),
        QByteArray(R"({"kind":"modifier","keyCode":61,"flagMask":524288,"displayName":"Right Option"})"));
    EXPECT_FALSE(HotkeyBinding::from(flagsChanged(61, 0), KeyNaming::macOS));
}

TEST(HotkeyBinding, PressingRightAltOnLinuxGivesTheSameKeyNamedRightAlt) {
    const auto pressed =
        HotkeyBinding::from(flagsChanged(61, ModifierFlags::option), KeyNaming::linuxDesktop);
    ASSERT_TRUE(pressed);
    EXPECT_EQ(pressed->toJson(),
              QByteArray(R"({"kind":"modifier","keyCode":61,"flagMask":524288,"displayName":"Right Alt"})"));
}

TEST(HotkeyBinding, PressingCapsLockGivesNothing) {
    EXPECT_FALSE(HotkeyBinding::from(flagsChanged(57, 0x10000)));
    EXPECT_FALSE(HotkeyBinding::from(flagsChanged(57, 0)));
}

TEST(HotkeyBinding, ModifierPressNeedsItsOwnFlagBit) {
    // Right Shift going down while only Option is reported is not a press of Shift.
    EXPECT_FALSE(HotkeyBinding::from(flagsChanged(60, ModifierFlags::option)));
    EXPECT_TRUE(HotkeyBinding::from(flagsChanged(60, ModifierFlags::shift | ModifierFlags::option)));
}

TEST(HotkeyBinding, PressingF13GivesAKeyBindingThatIsNotTypeable) {
    const auto binding = HotkeyBinding::from(keyDown(105, QString(QChar(0xF710))));
    ASSERT_TRUE(binding);
    EXPECT_EQ(binding->kind, HotkeyBinding::Kind::key);
    EXPECT_EQ(binding->displayName, QStringLiteral("F13"));
    EXPECT_EQ(binding->flagMask, 0u);
    EXPECT_FALSE(binding->isTypeable());
}

TEST(HotkeyBinding, PressingAWithShiftGivesATypeableKeyNamedUpperCaseA) {
    const auto binding = HotkeyBinding::from(keyDown(0, QStringLiteral("a"), ModifierFlags::shift));
    ASSERT_TRUE(binding);
    EXPECT_EQ(binding->kind, HotkeyBinding::Kind::key);
    EXPECT_EQ(binding->keyCode, 0);
    EXPECT_EQ(binding->displayName, QStringLiteral("A"));
    EXPECT_EQ(binding->flagMask, 0u);
    EXPECT_TRUE(binding->isTypeable());
}

TEST(HotkeyBinding, KeyWithoutCharactersIsNamedByItsKeyCode) {
    const auto binding = HotkeyBinding::from(keyDown(36, std::nullopt));
    ASSERT_TRUE(binding);
    EXPECT_EQ(binding->displayName, QStringLiteral("Key 36"));
}

TEST(HotkeyBinding, KeyWithEmptyCharactersKeepsAnEmptyName) {
    const auto binding = HotkeyBinding::from(keyDown(36, QString()));
    ASSERT_TRUE(binding);
    EXPECT_EQ(binding->displayName, QString());
}

TEST(HotkeyBinding, KeyUpAndOtherEventsGiveNothing) {
    EXPECT_FALSE(HotkeyBinding::from(KeyEvent{KeyEvent::Type::keyUp, 96, QStringLiteral("x"), 0}));
    EXPECT_FALSE(
        HotkeyBinding::from(KeyEvent{KeyEvent::Type::other, 61, std::nullopt, ModifierFlags::option}));
}

TEST(HotkeyBinding, LeftAndRightCommandDifferOnlyInKeyCodeAndName) {
    const auto right = *HotkeyBinding::from(flagsChanged(54, ModifierFlags::command), KeyNaming::macOS);
    const auto left = *HotkeyBinding::from(flagsChanged(55, ModifierFlags::command), KeyNaming::macOS);
    EXPECT_EQ(right.kind, left.kind);
    EXPECT_EQ(right.flagMask, left.flagMask);
    EXPECT_EQ(right.keyCode, 54);
    EXPECT_EQ(left.keyCode, 55);
    EXPECT_EQ(right.displayName, QStringLiteral("Right Command"));
    EXPECT_EQ(left.displayName, QStringLiteral("Left Command"));
    EXPECT_NE(right, left);
}

TEST(HotkeyBinding, ModifierBindingsAreNeverTypeable) {
    for (const auto& [code, modifier] : HotkeyBinding::modifiers())
        EXPECT_FALSE(
            (HotkeyBinding{HotkeyBinding::Kind::modifier, code, modifier.flagMask, modifier.displayName}
                 .isTypeable()));
    for (const auto& [code, name] : HotkeyBinding::functionKeys())
        EXPECT_FALSE((HotkeyBinding{HotkeyBinding::Kind::key, code, 0, name}.isTypeable()));
}

TEST(HotkeyBinding, EqualityComparesAllFourFields) {
    const HotkeyBinding a{HotkeyBinding::Kind::key, 96, 0, QStringLiteral("F5")};
    HotkeyBinding b = a;
    EXPECT_EQ(a, b);
    EXPECT_EQ(qHash(a), qHash(b));
    b.displayName = QStringLiteral("f5");
    EXPECT_NE(a, b);
    const QSet<HotkeyBinding> set{a, b};
    EXPECT_EQ(set.size(), 2);
}

TEST(HotkeyBinding, JsonRoundTripsEveryKindOfBinding) {
    std::vector<HotkeyBinding> bindings{
        HotkeyBinding::defaultBinding(KeyNaming::macOS),
        HotkeyBinding::defaultBinding(KeyNaming::linuxDesktop),
        {HotkeyBinding::Kind::key, 96, 0, QStringLiteral("F5")},
        {HotkeyBinding::Kind::key, 0, 0, QString::fromUtf8("Ä \"q\" ✓")},
        {HotkeyBinding::Kind::key, -3, 0, QString()},
        {HotkeyBinding::Kind::modifier, 63, 0xFFFFFFFFFFFFFFFFull, QStringLiteral("Fn")}};
    for (const HotkeyBinding& binding : bindings) {
        const auto decoded = HotkeyBinding::fromJson(binding.toJson());
        ASSERT_TRUE(decoded) << binding.toJson().constData();
        EXPECT_EQ(*decoded, binding);
    }
}

TEST(HotkeyBinding, JsonKeysAreWrittenInDeclarationOrder) {
    const QByteArray json = HotkeyBinding{HotkeyBinding::Kind::key, 96, 0, QStringLiteral("F5")}.toJson();
    EXPECT_EQ(json, QByteArray(R"({"kind":"key","keyCode":96,"flagMask":0,"displayName":"F5"})"));
}

TEST(HotkeyBinding, JsonMissingOrIllTypedKeysFailToDecode) {
    const char* bad[] = {
        R"({"keyCode":61,"flagMask":524288,"displayName":"Right Option"})",
        R"({"kind":"modifier","flagMask":524288,"displayName":"Right Option"})",
        R"({"kind":"modifier","keyCode":61,"displayName":"Right Option"})",
        R"({"kind":"modifier","keyCode":61,"flagMask":524288})",
        R"({"kind":"chord","keyCode":61,"flagMask":524288,"displayName":"Right Option"})",
        R"({"kind":"modifier","keyCode":"61","flagMask":524288,"displayName":"Right Option"})",
        R"({"kind":"modifier","keyCode":61.5,"flagMask":524288,"displayName":"Right Option"})",
        R"({"kind":"modifier","keyCode":61,"flagMask":-1,"displayName":"Right Option"})",
        R"({"kind":"modifier","keyCode":61,"flagMask":524288,"displayName":null})",
        R"([{"kind":"modifier","keyCode":61,"flagMask":524288,"displayName":"Right Option"}])",
        R"({"kind":"modifier","keyCode":61,"flagMask":524288,"displayName":"Right Option"} trailing)",
        "",
    };
    for (const char* json : bad)
        EXPECT_FALSE(HotkeyBinding::fromJson(QByteArray(json))) << json;
}

TEST(HotkeyBinding, JsonIgnoresUnknownMembersAndAcceptsWholeNumbersWrittenWithAFraction) {
    const auto binding = HotkeyBinding::fromJson(
        R"({"extra":[1],"displayName":"F5","flagMask":0.0,"keyCode":96.0,"kind":"key"})");
    ASSERT_TRUE(binding);
    EXPECT_EQ(*binding, (HotkeyBinding{HotkeyBinding::Kind::key, 96, 0, QStringLiteral("F5")}));
}

TEST(HotkeyBinding, MissingStoredValueLoadsTheDefault) {
    MemoryDefaults defaults;
    EXPECT_EQ(HotkeyBinding::load(defaults), HotkeyBinding::defaultBinding());
}

TEST(HotkeyBinding, EmptyOrCorruptStoredValueLoadsTheRightOptionDefault) {
    MemoryDefaults defaults;
    for (const QByteArray& stored : {QByteArray(), QByteArray("{"), QByteArray("\xff\xfe"), QByteArray("{}"),
                                     QByteArray(R"({"kind":"key","keyCode":96,"flagMask":0})")}) {
        defaults.setBytes(HotkeyBinding::defaultsKey, stored);
        EXPECT_EQ(HotkeyBinding::load(defaults, KeyNaming::macOS),
                  HotkeyBinding::defaultBinding(KeyNaming::macOS));
        // The bad value stays until a new binding is saved over it.
        EXPECT_EQ(defaults.bytesValue(HotkeyBinding::defaultsKey), stored);
    }
    defaults.setString(HotkeyBinding::defaultsKey, QStringLiteral("F5"));
    EXPECT_EQ(HotkeyBinding::load(defaults), HotkeyBinding::defaultBinding());
}

TEST(HotkeyBinding, SavedBindingLoadsBack) {
    MemoryDefaults defaults;
    const HotkeyBinding f5{HotkeyBinding::Kind::key, 96, 0, QStringLiteral("F5")};
    f5.save(defaults);
    EXPECT_EQ(defaults.bytesValue(HotkeyBinding::defaultsKey), f5.toJson());
    EXPECT_EQ(HotkeyBinding::load(defaults), f5);
}
