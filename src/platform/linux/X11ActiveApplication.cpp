#include "platform/linux/X11ActiveApplication.h"

#include "platform/linux/X11FocusedWindow.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QStandardPaths>

#include <X11/Xlib.h>

namespace murmurly {

namespace {

// The keys of the [Desktop Entry] group that matter here.
void readDesktopEntry(const QString& path, QString& name, QString& startupWmClass, bool& hidden) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return;
    bool inEntry = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            inEntry = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        if (!inEntry) continue;
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals <= 0) continue;
        const QString key = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        if (key == QLatin1String("Name"))
            name = value;
        else if (key == QLatin1String("StartupWMClass"))
            startupWmClass = value;
        else if (key == QLatin1String("Hidden"))
            hidden = value == QLatin1String("true");
    }
}

} // namespace

X11ActiveApplication::X11ActiveApplication(QByteArray displayName)
    : m_displayName(std::move(displayName)) {
}

X11ActiveApplication::~X11ActiveApplication() {
    if (m_display) XCloseDisplay(m_display);
}

std::optional<FocusedApplication> X11ActiveApplication::focused() const {
    if (!m_display) m_display = XOpenDisplay(m_displayName.isEmpty() ? nullptr : m_displayName.constData());
    if (!m_display) return std::nullopt;
    const auto window = X11FocusedWindow::find(m_display);
    if (!window || (window->className.isEmpty() && window->instanceName.isEmpty())) return std::nullopt;
    return applicationFor(window->instanceName, window->className);
}

FocusedApplication X11ActiveApplication::applicationFor(const QString& instanceName,
                                                        const QString& className) const {
    refreshEntries();
    const QString windowClass = className.isEmpty() ? instanceName : className;
    const DesktopEntry* match = nullptr;
    // The entry that declares the window class wins; a file named after it comes next.
    for (const DesktopEntry& entry : m_entries)
        if (!entry.startupWmClass.isEmpty() &&
            entry.startupWmClass.compare(windowClass, Qt::CaseInsensitive) == 0) {
            match = &entry;
            break;
        }
    for (const QString& name : {className, instanceName}) {
        if (match || name.isEmpty()) break;
        for (const DesktopEntry& entry : m_entries)
            if (entry.id.compare(name, Qt::CaseInsensitive) == 0) {
                match = &entry;
                break;
            }
    }
    if (!match) return {windowClass, windowClass};
    return {match->id, match->name.isEmpty() ? match->id : match->name};
}

void X11ActiveApplication::refreshEntries() const {
    const QStringList folders = QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation);
    QList<QPair<QString, QDateTime>> state;
    for (const QString& folder : folders)
        state.append({folder, QFileInfo(folder).lastModified()});
    if (state == m_scanned) return;
    m_scanned = state;
    m_entries.clear();
    QSet<QString> seen; // an id in an earlier folder hides the same id later
    for (const QString& folder : folders) {
        QDirIterator files(folder, {QStringLiteral("*.desktop")}, QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString path = files.next();
            // The id of applications/vendor/app.desktop is "vendor-app".
            QString id = path.mid(folder.size() + 1);
            id.chop(int(sizeof(".desktop") - 1));
            id.replace(QLatin1Char('/'), QLatin1Char('-'));
            if (seen.contains(id)) continue;
            seen.insert(id);
            DesktopEntry entry{id, {}, {}};
            bool hidden = false;
            readDesktopEntry(path, entry.name, entry.startupWmClass, hidden);
            if (!hidden) m_entries.append(entry);
        }
    }
}

} // namespace murmurly
