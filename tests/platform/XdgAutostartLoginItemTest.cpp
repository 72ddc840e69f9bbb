#include "platform/linux/XdgAutostartLoginItem.h"
#include "TemporaryHome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

using namespace murmurly;
using namespace murmurly::testing;

// Failure messages show text, not UTF-16 code units.
void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

namespace {

// The keys of the file's [Desktop Entry] group, read the way a session manager reads them; nothing
// when the file cannot be read or the group is missing or not first.
std::optional<QMap<QString, QString>> readDesktopEntry(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return std::nullopt;
    QMap<QString, QString> keys;
    bool sawGroup = false;
    bool inGroup = false;
    for (const QByteArray& raw : file.readAll().split('\n')) {
        const QString line = QString::fromUtf8(raw).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) continue;
        if (line.startsWith(QLatin1Char('['))) {
            if (!sawGroup && line != QLatin1String("[Desktop Entry]")) return std::nullopt;
            inGroup = !sawGroup;
            sawGroup = true;
            continue;
        }
        if (!inGroup) continue;
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals <= 0) return std::nullopt;
        const QString key = line.left(equals).trimmed();
        if (keys.contains(key)) return std::nullopt; // duplicate keys are invalid
        keys.insert(key, line.mid(equals + 1).trimmed());
    }
    if (!sawGroup) return std::nullopt;
    return keys;
}

// An Exec value of the entry without its last argument, the option that marks a start by the login.
QString programPartOf(const QString& exec) {
    const QString option = QStringLiteral(" --autostart");
    EXPECT_TRUE(exec.endsWith(option)) << qPrintable(exec);
    return exec.endsWith(option) ? exec.chopped(option.size()) : exec;
}

// The program an Exec value of one argument starts: string escapes undone first, then the quoting,
// then the doubled percent signs, the order the desktop-entry format prescribes.
std::optional<QString> programOfExec(const QString& value) {
    QString unescaped;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] != QLatin1Char('\\')) {
            unescaped += value[i];
            continue;
        }
        if (++i == value.size()) return std::nullopt;
        const QChar next = value[i];
        if (next == QLatin1Char('s'))
            unescaped += QLatin1Char(' ');
        else if (next == QLatin1Char('n'))
            unescaped += QLatin1Char('\n');
        else if (next == QLatin1Char('t'))
            unescaped += QLatin1Char('\t');
        else if (next == QLatin1Char('r'))
            unescaped += QLatin1Char('\r');
        else if (next == QLatin1Char('\\'))
            unescaped += QLatin1Char('\\');
        else
            return std::nullopt;
    }
    QString program;
    if (unescaped.startsWith(QLatin1Char('"'))) {
        qsizetype i = 1;
        for (; i < unescaped.size() && unescaped[i] != QLatin1Char('"'); ++i) {
            if (unescaped[i] == QLatin1Char('\\')) {
                if (++i == unescaped.size()) return std::nullopt;
                static const QString escapable = QStringLiteral("\"`$\\");
                if (!escapable.contains(unescaped[i])) return std::nullopt;
            }
            program += unescaped[i];
        }
        if (i != unescaped.size() - 1) return std::nullopt; // unterminated, or more than one argument
    } else {
        if (unescaped.contains(QLatin1Char(' '))) return std::nullopt;
        program = unescaped;
    }
    // Field codes: only %% (a literal percent sign) may appear in a program path.
    QString expanded;
    for (qsizetype i = 0; i < program.size(); ++i) {
        if (program[i] == QLatin1Char('%') && (++i == program.size() || program[i] != QLatin1Char('%')))
            return std::nullopt;
        expanded += program[i];
    }
    return expanded;
}

void writeFile(const QString& path, const QByteArray& content) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << qPrintable(path);
    file.write(content);
}

} // namespace

// TemporaryHome restores XDG_CONFIG_HOME when it goes, whatever a test set it to.
TEST(XdgAutostartLoginItem, AutostartFileLivesUnderXdgConfigHome) {
    TemporaryHome home;
    const QString configHome = home.filePath(QStringLiteral("elsewhere/config"));
    qputenv("XDG_CONFIG_HOME", configHome.toLocal8Bit());
    EXPECT_EQ(XdgAutostartLoginItem::autostartFilePath(),
              configHome + QStringLiteral("/autostart/murmurly.desktop"));

    XdgAutostartLoginItem item(QStringLiteral("/usr/bin/murmurly"));
    ASSERT_EQ(item.registerItem(), std::nullopt);
    EXPECT_TRUE(QFile::exists(configHome + QStringLiteral("/autostart/murmurly.desktop")));
    EXPECT_FALSE(QFile::exists(home.path() + QStringLiteral("/.config/autostart/murmurly.desktop")));
}

TEST(XdgAutostartLoginItem, AutostartFileDefaultsToDotConfigInHome) {
    TemporaryHome home;
    const QString expected = home.path() + QStringLiteral("/.config/autostart/murmurly.desktop");

    qunsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(XdgAutostartLoginItem::autostartFilePath(), expected);
    qputenv("XDG_CONFIG_HOME", "");
    EXPECT_EQ(XdgAutostartLoginItem::autostartFilePath(), expected);
    // The base directory rules say relative paths are invalid and must be ignored.
    qputenv("XDG_CONFIG_HOME", "relative/config");
    EXPECT_EQ(XdgAutostartLoginItem::autostartFilePath(), expected);
}

TEST(XdgAutostartLoginItem, RegisterWritesAnEntryThatStartsTheProgram) {
    TemporaryHome home;
    XdgAutostartLoginItem item(QStringLiteral("/opt/murmurly/bin/murmurly"));
    EXPECT_FALSE(QFileInfo::exists(home.configHome() + QStringLiteral("/autostart")));

    ASSERT_EQ(item.registerItem(), std::nullopt);

    const auto keys = readDesktopEntry(home.configHome() + QStringLiteral("/autostart/murmurly.desktop"));
    ASSERT_TRUE(keys.has_value());
    const QMap<QString, QString> expected{
        {QStringLiteral("Type"), QStringLiteral("Application")},
        {QStringLiteral("Name"), QStringLiteral("Murmurly")},
        {QStringLiteral("Comment"), QStringLiteral("Push-to-talk dictation")},
        {QStringLiteral("Exec"), QStringLiteral("/opt/murmurly/bin/murmurly --autostart")},
        {QStringLiteral("Icon"), QStringLiteral("murmurly")},
        {QStringLiteral("Terminal"), QStringLiteral("false")},
        {QStringLiteral("X-GNOME-Autostart-enabled"), QStringLiteral("true")},
    };
    EXPECT_EQ(keys->keys(), expected.keys());
    for (auto it = expected.begin(); it != expected.end(); ++it)
        EXPECT_EQ(keys->value(it.key()), it.value()) << qPrintable(it.key());
}

TEST(XdgAutostartLoginItem, RegisterQuotesAProgramPathWithASpace) {
    TemporaryHome home;
    const QString program = home.filePath(QStringLiteral("My Programs/murmurly"));
    XdgAutostartLoginItem item(program);
    ASSERT_EQ(item.registerItem(), std::nullopt);

    const auto keys = readDesktopEntry(XdgAutostartLoginItem::autostartFilePath());
    ASSERT_TRUE(keys.has_value());
    EXPECT_EQ(keys->value(QStringLiteral("Exec")),
              QLatin1Char('"') + program + QLatin1Char('"') + QStringLiteral(" --autostart"));
    EXPECT_EQ(programOfExec(programPartOf(keys->value(QStringLiteral("Exec")))), program);
}

TEST(XdgAutostartLoginItem, ExecValueEscapesWhatTheFormatReserves) {
    // A plain path stays as it is.
    EXPECT_EQ(XdgAutostartLoginItem::execValue(QStringLiteral("/usr/bin/murmurly")),
              QStringLiteral("/usr/bin/murmurly"));
    // Quoted, with backslashes for ", $ and \ inside the quotes, then every backslash doubled by
    // the string escapes; % doubled.
    EXPECT_EQ(XdgAutostartLoginItem::execValue(QStringLiteral("/a b/$x\"y\\z%")),
              QStringLiteral("\"/a b/\\\\$x\\\\\"y\\\\\\\\z%%\""));
    // A percent sign alone needs no quotes, only doubling.
    EXPECT_EQ(XdgAutostartLoginItem::execValue(QStringLiteral("/opt/100%/murmurly")),
              QStringLiteral("/opt/100%%/murmurly"));

    for (const QString& path :
         {QStringLiteral("/usr/bin/murmurly"), QStringLiteral("/home/ann/My Apps/murmurly"),
          QStringLiteral("/tmp/it's/murmurly"), QStringLiteral("/tmp/a`b`/$HOME/x\\y"),
          QStringLiteral("/tmp/tab\there/new\nline"), QStringLiteral("/tmp/(x)&y;z|w<v>u*t?s#r~q"),
          QStringLiteral("/tmp/50% off/murmurly"), QStringLiteral("/tmp/caf\u00e9/murmurly")}) {
        const QString value = XdgAutostartLoginItem::execValue(path);
        EXPECT_FALSE(value.contains(QLatin1Char('\n'))) << qPrintable(value);
        EXPECT_EQ(programOfExec(value), path) << qPrintable(value);
    }
}

TEST(XdgAutostartLoginItem, RelativeProgramPathIsMadeAbsolute) {
    TemporaryHome home;
    XdgAutostartLoginItem item(QStringLiteral("bin/murmurly"));
    ASSERT_EQ(item.registerItem(), std::nullopt);
    const auto keys = readDesktopEntry(XdgAutostartLoginItem::autostartFilePath());
    ASSERT_TRUE(keys.has_value());
    const QString exec = keys->value(QStringLiteral("Exec"));
    EXPECT_EQ(programOfExec(programPartOf(exec)), QDir::currentPath() + QStringLiteral("/bin/murmurly"));
}

TEST(XdgAutostartLoginItem, EnabledAfterRegisterAndNotAfterUnregister) {
    TemporaryHome home;
    XdgAutostartLoginItem item(QStringLiteral("/usr/bin/murmurly"));
    EXPECT_FALSE(item.isEnabled());

    ASSERT_EQ(item.registerItem(), std::nullopt);
    EXPECT_TRUE(item.isEnabled());
    // Registering again keeps one valid entry.
    ASSERT_EQ(item.registerItem(), std::nullopt);
    EXPECT_TRUE(item.isEnabled());
    EXPECT_TRUE(readDesktopEntry(XdgAutostartLoginItem::autostartFilePath()).has_value());

    ASSERT_EQ(item.unregisterItem(), std::nullopt);
    EXPECT_FALSE(item.isEnabled());
    EXPECT_FALSE(QFileInfo::exists(XdgAutostartLoginItem::autostartFilePath()));
}

TEST(XdgAutostartLoginItem, UnregisterWithoutAnEntrySucceeds) {
    TemporaryHome home;
    XdgAutostartLoginItem item(QStringLiteral("/usr/bin/murmurly"));
    ASSERT_FALSE(QFileInfo::exists(XdgAutostartLoginItem::autostartFilePath()));
    EXPECT_EQ(item.unregisterItem(), std::nullopt);
    EXPECT_FALSE(item.isEnabled());
}

TEST(XdgAutostartLoginItem, EntriesTheUserSwitchedOffReadAsDisabled) {
    TemporaryHome home;
    XdgAutostartLoginItem item(QStringLiteral("/usr/bin/murmurly"));
    const QString path = XdgAutostartLoginItem::autostartFilePath();
    const QByteArray head = "[Desktop Entry]\nType=Application\nName=Murmurly\nExec=/usr/bin/murmurly\n";

    writeFile(path, head + "Hidden=true\n");
    EXPECT_FALSE(item.isEnabled());
    writeFile(path, head + "X-GNOME-Autostart-enabled=false\n");
    EXPECT_FALSE(item.isEnabled());
    // Spaces around the equals sign are ignored.
    writeFile(path, head + "Hidden = true\n");
    EXPECT_FALSE(item.isEnabled());

    // The same keys saying "on", or no such keys: enabled.
    writeFile(path, head + "Hidden=false\nX-GNOME-Autostart-enabled=true\n");
    EXPECT_TRUE(item.isEnabled());
    writeFile(path, head);
    EXPECT_TRUE(item.isEnabled());
    // Keys of another group say nothing about the entry.
    writeFile(path, head + "\n[Desktop Action quiet]\nName=Quiet\nHidden=true\n");
    EXPECT_TRUE(item.isEnabled());
}

TEST(XdgAutostartLoginItem, FileWithoutADesktopEntryGroupReadsAsDisabled) {
    TemporaryHome home;
    XdgAutostartLoginItem item(QStringLiteral("/usr/bin/murmurly"));
    const QString path = XdgAutostartLoginItem::autostartFilePath();
    writeFile(path, "Type=Application\nExec=/usr/bin/murmurly\n");
    EXPECT_FALSE(item.isEnabled());
    writeFile(path, "[Something Else]\nType=Application\nExec=/usr/bin/murmurly\n");
    EXPECT_FALSE(item.isEnabled());
    writeFile(path, "");
    EXPECT_FALSE(item.isEnabled());
}

TEST(XdgAutostartLoginItem, RegisterReplacesAnEntryTheUserSwitchedOff) {
    TemporaryHome home;
    XdgAutostartLoginItem item(QStringLiteral("/usr/bin/murmurly"));
    writeFile(XdgAutostartLoginItem::autostartFilePath(), "[Desktop Entry]\nType=Application\nHidden=true\n");
    ASSERT_FALSE(item.isEnabled());
    ASSERT_EQ(item.registerItem(), std::nullopt);
    EXPECT_TRUE(item.isEnabled());
    const auto keys = readDesktopEntry(XdgAutostartLoginItem::autostartFilePath());
    ASSERT_TRUE(keys.has_value());
    EXPECT_FALSE(keys->contains(QStringLiteral("Hidden")));
}

TEST(XdgAutostartLoginItem, AutostartFolderThatRefusesChangesGivesTheSystemsReason) {
    TemporaryHome home;
    XdgAutostartLoginItem item(QStringLiteral("/usr/bin/murmurly"));
    const QString folder = home.configHome() + QStringLiteral("/autostart");
    ASSERT_TRUE(QDir().mkpath(folder));
    const QString path = XdgAutostartLoginItem::autostartFilePath();
    const QByteArray folderName = QFile::encodeName(folder);
    const QByteArray entryName = QFile::encodeName(path);
    ASSERT_EQ(chmod(folderName.constData(), 0500), 0);

    // A read-only folder refuses ordinary users; privileged ones (root, CAP_DAC_OVERRIDE) write
    // into it anyway. Find out by trying, and learn the system's wording for the refusal.
    const QByteArray probe = folderName + "/probe";
    const int fd = open(probe.constData(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    const int probeErrno = errno;
    if (fd < 0) {
        SCOPED_TRACE("read-only folder");
        const QString reason = QString::fromLocal8Bit(std::strerror(probeErrno));

        EXPECT_EQ(item.registerItem(), QStringLiteral("Could not write %1: %2.").arg(path, reason));
        EXPECT_FALSE(item.isEnabled());
        EXPECT_FALSE(QFileInfo::exists(path));

        // An entry that exists but cannot be removed: the failure is told and the status stays on.
        ASSERT_EQ(chmod(folderName.constData(), 0700), 0);
        ASSERT_EQ(item.registerItem(), std::nullopt);
        ASSERT_EQ(chmod(folderName.constData(), 0500), 0);
        EXPECT_EQ(item.unregisterItem(), QStringLiteral("Could not remove %1: %2.").arg(path, reason));
        EXPECT_TRUE(item.isEnabled());
        EXPECT_TRUE(QFileInfo::exists(path));
        chmod(folderName.constData(), 0700);
        return;
    }

    // This user overrides permissions, so the folder is made unusable in ways no privilege gets
    // past, and the system's reason is again learned by doing the same thing directly first.
    SCOPED_TRACE("privileged user");
    close(fd);
    ASSERT_EQ(unlink(probe.constData()), 0);
    ASSERT_EQ(chmod(folderName.constData(), 0700), 0);

    // A regular file where the folder must be: the folder cannot be created.
    ASSERT_EQ(rmdir(folderName.constData()), 0);
    writeFile(folder, "not a folder");
    ASSERT_LT(open(folderName.constData(), O_RDONLY | O_DIRECTORY), 0);
    const QString createReason = QString::fromLocal8Bit(std::strerror(errno));
    EXPECT_EQ(item.registerItem(), QStringLiteral("Could not create %1: %2.").arg(folder, createReason));
    EXPECT_FALSE(item.isEnabled());
    EXPECT_TRUE(QFileInfo(folder).isFile());

    // A registered entry whose name is then taken by a folder with something in it: the removal
    // fails with the system's reason and the folder stays.
    ASSERT_TRUE(QFile::remove(folder));
    ASSERT_EQ(item.registerItem(), std::nullopt);
    ASSERT_TRUE(item.isEnabled());
    ASSERT_TRUE(QFile::remove(path));
    writeFile(path + QStringLiteral("/inside"), "x");
    ASSERT_NE(rmdir(entryName.constData()), 0);
    const QString removeReason = QString::fromLocal8Bit(std::strerror(errno));
    EXPECT_EQ(item.unregisterItem(), QStringLiteral("Could not remove %1: %2.").arg(path, removeReason));
    EXPECT_TRUE(QFileInfo(path + QStringLiteral("/inside")).isFile());
}

TEST(XdgAutostartLoginItem, FileInPlaceOfTheAutostartFolderGivesTheReason) {
    // Fails for every user, root included: a regular file where the folder should be.
    TemporaryHome home;
    XdgAutostartLoginItem item(QStringLiteral("/usr/bin/murmurly"));
    const QString folder = home.configHome() + QStringLiteral("/autostart");
    writeFile(folder, "not a folder");

    const std::optional<QString> error = item.registerItem();
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(*error, QStringLiteral("Could not create %1: %2.")
                          .arg(folder, QString::fromLocal8Bit(std::strerror(ENOTDIR))));
    EXPECT_FALSE(item.isEnabled());
}

TEST(XdgAutostartLoginItem, FolderInPlaceOfTheEntryCannotBeReplacedOrRemoved) {
    // Also fails for root: the entry's name is taken by a folder with something in it.
    TemporaryHome home;
    XdgAutostartLoginItem item(QStringLiteral("/usr/bin/murmurly"));
    const QString path = XdgAutostartLoginItem::autostartFilePath();
    writeFile(path + QStringLiteral("/inside"), "x");

    const std::optional<QString> writeError = item.registerItem();
    ASSERT_TRUE(writeError.has_value());
    EXPECT_TRUE(writeError->startsWith(QStringLiteral("Could not write %1: ").arg(path)))
        << qPrintable(*writeError);
    EXPECT_TRUE(writeError->endsWith(QLatin1Char('.')));
    EXPECT_GT(writeError->size(), QStringLiteral("Could not write %1: .").arg(path).size());
    EXPECT_FALSE(item.isEnabled());

    EXPECT_EQ(item.unregisterItem(), QStringLiteral("Could not remove %1: %2.")
                                         .arg(path, QString::fromLocal8Bit(std::strerror(ENOTEMPTY))));
    EXPECT_TRUE(QFileInfo(path).isDir());
}

TEST(XdgAutostartLoginItem, AnEntryOfAnEarlierVersionIsRenewedWithTheAutostartOption) {
    TemporaryHome home;
    XdgAutostartLoginItem item(QStringLiteral("/usr/bin/murmurly"));
    const QString path = XdgAutostartLoginItem::autostartFilePath();
    const QByteArray old = "[Desktop Entry]\nType=Application\nName=Murmurly\nExec=/usr/bin/murmurly\n";
    writeFile(path, old);
    EXPECT_TRUE(item.renewOutdatedEntry());
    EXPECT_EQ(readDesktopEntry(path)->value(QStringLiteral("Exec")),
              QStringLiteral("/usr/bin/murmurly --autostart"));
    EXPECT_TRUE(item.isEnabled());
    // Renewed once: the next start leaves it alone.
    EXPECT_FALSE(item.renewOutdatedEntry());

    // Switched off, or edited by the user, or for another program: left as it is.
    for (const QByteArray& kept :
         {old + "Hidden=true\n",
          QByteArray("[Desktop Entry]\nType=Application\nExec=env LANG=C /usr/bin/murmurly\n"),
          QByteArray("[Desktop Entry]\nType=Application\nExec=/opt/other/murmurly\n")}) {
        writeFile(path, kept);
        EXPECT_FALSE(item.renewOutdatedEntry()) << kept.constData();
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_EQ(file.readAll(), kept);
    }
}
