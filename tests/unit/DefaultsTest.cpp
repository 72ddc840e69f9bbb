#include "MemoryDefaults.h"

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::MemoryDefaults;

TEST(Defaults, AbsentKeysReadAsAbsent) {
    MemoryDefaults defaults;
    EXPECT_FALSE(defaults.contains(QStringLiteral("k")));
    EXPECT_FALSE(defaults.boolValue(QStringLiteral("k")));
    EXPECT_FALSE(defaults.intValue(QStringLiteral("k")));
    EXPECT_FALSE(defaults.stringValue(QStringLiteral("k")));
    EXPECT_FALSE(defaults.bytesValue(QStringLiteral("k")));
}

TEST(Defaults, TypedValuesReadBackAsWritten) {
    MemoryDefaults defaults;
    defaults.setBool(QStringLiteral("b"), true);
    defaults.setInt(QStringLiteral("i"), -7);
    defaults.setString(QStringLiteral("s"), QString());
    defaults.setBytes(QStringLiteral("d"), QByteArray("{}"));
    EXPECT_EQ(defaults.boolValue(QStringLiteral("b")), true);
    EXPECT_EQ(defaults.intValue(QStringLiteral("i")), -7);
    EXPECT_EQ(defaults.stringValue(QStringLiteral("s")), QString());
    EXPECT_EQ(defaults.bytesValue(QStringLiteral("d")), QByteArray("{}"));
}

TEST(Defaults, AValueOfAnotherTypeReadsAsAbsent) {
    MemoryDefaults defaults;
    defaults.setBytes(QStringLiteral("k"), QByteArray("12"));
    EXPECT_FALSE(defaults.intValue(QStringLiteral("k")));
    EXPECT_FALSE(defaults.boolValue(QStringLiteral("k")));
    EXPECT_FALSE(defaults.stringValue(QStringLiteral("k")));
    defaults.setString(QStringLiteral("k"), QStringLiteral("twelve"));
    EXPECT_FALSE(defaults.intValue(QStringLiteral("k")));
    EXPECT_FALSE(defaults.bytesValue(QStringLiteral("k")));
}

TEST(Defaults, TextHoldingANumberOrABooleanReadsAsOne) {
    // INI files keep scalars as text.
    MemoryDefaults defaults;
    defaults.setString(QStringLiteral("i"), QStringLiteral("25"));
    defaults.setString(QStringLiteral("b"), QStringLiteral("false"));
    defaults.setString(QStringLiteral("x"), QStringLiteral("2.5"));
    EXPECT_EQ(defaults.intValue(QStringLiteral("i")), 25);
    EXPECT_EQ(defaults.boolValue(QStringLiteral("b")), false);
    EXPECT_FALSE(defaults.intValue(QStringLiteral("x")));
}

TEST(Defaults, RemoveMakesAKeyAbsent) {
    MemoryDefaults defaults;
    defaults.setInt(QStringLiteral("k"), 1);
    defaults.remove(QStringLiteral("k"));
    EXPECT_FALSE(defaults.contains(QStringLiteral("k")));
}
