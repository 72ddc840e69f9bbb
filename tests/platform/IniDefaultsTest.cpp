#include "platform/linux/IniDefaults.h"
#include "TemporaryHome.h"

#include <QFile>

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::TemporaryHome;

TEST(IniDefaults, FileLivesUnderXdgConfigHome) {
    TemporaryHome home;
    EXPECT_EQ(IniDefaults::defaultFilePath(), home.configHome() + QStringLiteral("/murmurly/settings.ini"));
}

TEST(IniDefaults, EveryWriteReachesTheFileAtOnce) {
    TemporaryHome home;
    IniDefaults defaults;
    defaults.setBool(QStringLiteral("trailingSpace"), true);
    QFile file(IniDefaults::defaultFilePath());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(file.readAll().contains("trailingSpace=true"));
}

TEST(IniDefaults, TypedValuesSurviveARelaunch) {
    TemporaryHome home;
    const QByteArray json = R"({"kind":"modifier","keyCode":61,"flagMask":524288,"displayName":"Right Alt"})";
    {
        IniDefaults defaults;
        defaults.setBool(QStringLiteral("b"), false);
        defaults.setInt(QStringLiteral("i"), 25);
        defaults.setString(QStringLiteral("s"), QStringLiteral("toggle"));
        defaults.setString(QStringLiteral("empty"), QString());
        defaults.setBytes(QStringLiteral("d"), json);
        defaults.setBytes(QStringLiteral("binary"), QByteArray("\x00\xff\n=;#[]", 9));
    }
    IniDefaults defaults;
    EXPECT_EQ(defaults.boolValue(QStringLiteral("b")), false);
    EXPECT_EQ(defaults.intValue(QStringLiteral("i")), 25);
    EXPECT_EQ(defaults.stringValue(QStringLiteral("s")), QStringLiteral("toggle"));
    EXPECT_EQ(defaults.stringValue(QStringLiteral("empty")), QString());
    EXPECT_EQ(defaults.bytesValue(QStringLiteral("d")), json);
    EXPECT_EQ(defaults.bytesValue(QStringLiteral("binary")), QByteArray("\x00\xff\n=;#[]", 9));
    EXPECT_FALSE(defaults.contains(QStringLiteral("absent")));
}

TEST(IniDefaults, HandEditedNonsenseReadsAsAbsentOfTheAskedType) {
    TemporaryHome home;
    const QString path = IniDefaults::defaultFilePath();
    {
        IniDefaults defaults; // creates the folder
        defaults.setInt(QStringLiteral("seed"), 1);
    }
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write("[General]\nhistoryKeepLast=lots\nhotkeyBinding=plain text\ngarbage line without equals\n");
    file.close();
    IniDefaults defaults;
    EXPECT_FALSE(defaults.intValue(QStringLiteral("historyKeepLast")));
    EXPECT_FALSE(defaults.bytesValue(QStringLiteral("hotkeyBinding")));
}

TEST(IniDefaults, RemoveDeletesTheKey) {
    TemporaryHome home;
    IniDefaults defaults;
    defaults.setInt(QStringLiteral("k"), 3);
    defaults.remove(QStringLiteral("k"));
    IniDefaults reread;
    EXPECT_FALSE(reread.contains(QStringLiteral("k")));
}
