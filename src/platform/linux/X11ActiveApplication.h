#pragma once

#include "core/ActiveApplication.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

struct _XDisplay;

namespace murmurly {

// The application of the focused X window. Its identifier is the id of its desktop entry (the
// file name without ".desktop", found in the XDG applications folders by StartupWMClass or by a
// file named after the window's WM_CLASS), else the WM_CLASS class itself; its display name is the
// entry's Name, else the identifier. Used on the main thread.
class X11ActiveApplication final : public ActiveApplication {
public:
    // An empty display name means the DISPLAY of the environment.
    explicit X11ActiveApplication(QByteArray displayName = {});
    ~X11ActiveApplication() override;
    X11ActiveApplication(const X11ActiveApplication&) = delete;
    X11ActiveApplication& operator=(const X11ActiveApplication&) = delete;

    std::optional<FocusedApplication> focused() const override;

    // The application a window of this WM_CLASS belongs to, by the desktop entries installed now.
    FocusedApplication applicationFor(const QString& instanceName, const QString& className) const;

private:
    struct DesktopEntry {
        QString id;
        QString name;
        QString startupWmClass;
    };

    void refreshEntries() const;

    QByteArray m_displayName;
    mutable _XDisplay* m_display = nullptr;
    // Desktop entries in precedence order (the user's folder first), read again when a folder
    // changes.
    mutable QList<DesktopEntry> m_entries;
    mutable QList<QPair<QString, QDateTime>> m_scanned;
};

} // namespace murmurly
