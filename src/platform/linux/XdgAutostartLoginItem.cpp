#include "platform/linux/XdgAutostartLoginItem.h"

#include "core/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <filesystem>
#include <system_error>

namespace murmurly {

namespace {

const QString desktopEntryGroup = QStringLiteral("Desktop Entry");

// Characters after which an Exec argument must be quoted, from the desktop-entry format.
bool needsQuoting(const QString& argument) {
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    if (argument.isEmpty()) return true;
    for (const QChar c : argument)
        if (reserved.contains(c)) return true;
    return false;
}

// One-line reason from a std::error_code, with the OS's own wording.
QString reasonText(const std::error_code& error) {
    return QString::fromLocal8Bit(error.message().c_str());
}

} // namespace

XdgAutostartLoginItem::XdgAutostartLoginItem(QString executablePath)
    : m_executablePath(executablePath.isEmpty() ? QString() : QFileInfo(executablePath).absoluteFilePath()) {
}

QString XdgAutostartLoginItem::autostartFilePath() {
    QString configHome = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (configHome.isEmpty() || QDir::isRelativePath(configHome))
        configHome = QDir::homePath() + QStringLiteral("/.config");
    return configHome + QStringLiteral("/autostart/murmurly.desktop");
}

QString XdgAutostartLoginItem::execValue(const QString& executablePath) {
    QString argument = executablePath;
    if (needsQuoting(argument)) {
        // Inside double quotes these four still need a backslash.
        QString quoted;
        for (const QChar c : argument) {
            if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') ||
                c == QLatin1Char('\\'))
                quoted += QLatin1Char('\\');
            quoted += c;
        }
        argument = QLatin1Char('"') + quoted + QLatin1Char('"');
    }
    // A literal percent sign would start a field code.
    argument.replace(QLatin1Char('%'), QStringLiteral("%%"));
    // The string escapes of the file format come last: readers undo them before unquoting.
    QString value;
    for (const QChar c : argument) {
        if (c == QLatin1Char('\\'))
            value += QStringLiteral("\\\\");
        else if (c == QLatin1Char('\n'))
            value += QStringLiteral("\\n");
        else if (c == QLatin1Char('\t'))
            value += QStringLiteral("\\t");
        else if (c == QLatin1Char('\r'))
            value += QStringLiteral("\\r");
        else
            value += c;
    }
    return value;
}

XdgAutostartLoginItem::Entry XdgAutostartLoginItem::readEntry() {
    Entry entry;
    QFile file(autostartFilePath());
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return entry;
    bool inEntry = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) continue;
        if (line.startsWith(QLatin1Char('[')) && line.endsWith(QLatin1Char(']'))) {
            inEntry = line.mid(1, line.size() - 2) == desktopEntryGroup;
            entry.found = entry.found || inEntry;
            continue;
        }
        if (!inEntry) continue;
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals <= 0) continue;
        const QString key = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        // Both keys are how desktops record a user's "don't start this" without deleting the file.
        if (key == QLatin1String("Hidden")) entry.hidden = value == QLatin1String("true");
        if (key == QLatin1String("X-GNOME-Autostart-enabled"))
            entry.switchedOff = value == QLatin1String("false");
        if (key == QLatin1String("Exec")) entry.exec = value;
    }
    return entry;
}

bool XdgAutostartLoginItem::isEnabled() const {
    return readEntry().isEnabled();
}

bool XdgAutostartLoginItem::renewOutdatedEntry() {
    if (m_executablePath.isEmpty()) return false;
    // Only an entry exactly as an earlier version wrote it: one the user edited is theirs.
    const Entry entry = readEntry();
    if (!entry.isEnabled() || entry.exec != execValue(m_executablePath)) return false;
    if (const std::optional<QString> failure = registerItem()) {
        qCWarning(lcApp, "Could not renew the autostart entry: %s", qUtf8Printable(*failure));
        return false;
    }
    return true;
}

std::optional<QString> XdgAutostartLoginItem::registerItem() {
    const QString path = autostartFilePath();
    if (m_executablePath.isEmpty())
        return QStringLiteral("Could not write %1: the program's own path is unknown.").arg(path);

    const QString folder = QFileInfo(path).path();
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(QFile::encodeName(folder).toStdString()),
                                        error);
    if (error) return QStringLiteral("Could not create %1: %2.").arg(folder, reasonText(error));

    const QString content = QStringLiteral("[Desktop Entry]\n"
                                           "Type=Application\n"
                                           "Name=Murmurly\n"
                                           "Comment=Push-to-talk dictation\n"
                                           "Exec=%1\n"
                                           "Icon=murmurly\n"
                                           "Terminal=false\n"
                                           "X-GNOME-Autostart-enabled=true\n")
                                .arg(execValue(m_executablePath) + QLatin1Char(' ') + autostartOption);
    // Written beside the target and renamed over it: a session starting meanwhile never reads
    // half an entry.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return QStringLiteral("Could not write %1: %2.").arg(path, file.errorString());
    const QByteArray bytes = content.toUtf8();
    if (file.write(bytes) != bytes.size() || !file.commit())
        return QStringLiteral("Could not write %1: %2.").arg(path, file.errorString());
    qCInfo(lcApp, "Registered %s to start at login", qUtf8Printable(path));
    return std::nullopt;
}

std::optional<QString> XdgAutostartLoginItem::unregisterItem() {
    const QString path = autostartFilePath();
    std::error_code error;
    // remove() reports a missing file as "nothing removed", not as an error: already unregistered.
    const bool removed =
        std::filesystem::remove(std::filesystem::path(QFile::encodeName(path).toStdString()), error);
    if (error) return QStringLiteral("Could not remove %1: %2.").arg(path, reasonText(error));
    if (removed) qCInfo(lcApp, "Removed %s: no longer started at login", qUtf8Printable(path));
    return std::nullopt;
}

} // namespace murmurly
