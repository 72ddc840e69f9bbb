#pragma once

#include "records/HistoryEntry.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

#include <optional>

namespace murmurly {

class Clock;
class Defaults;

// The optional, local-only log of finished dictations, newest first, kept in one JSON file.
// Every change is written at once; write failures are silent. A file that cannot be read loads as
// an empty history, and before anything is saved over it, it is kept beside the new one under a
// dated name (announced once), so that what it held is never lost.
class HistoryStore : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool enabled READ enabled WRITE setEnabled NOTIFY enabledChanged)
    Q_PROPERTY(QList<murmurly::HistoryEntry> entries READ entries WRITE setEntries NOTIFY entriesChanged)
    Q_PROPERTY(qint64 keepLast READ keepLast WRITE setKeepLast NOTIFY keepLastChanged)
    Q_PROPERTY(qint64 maxAgeDays READ maxAgeDays WRITE setMaxAgeDays NOTIFY maxAgeDaysChanged)

public:
    static inline const QString enabledKey = QStringLiteral("historyEnabled");
    static inline const QString keepLastKey = QStringLiteral("historyKeepLast");
    static inline const QString maxAgeDaysKey = QStringLiteral("historyMaxAgeDays");
    static constexpr qint64 defaultKeepLast = 100;
    static constexpr qint64 defaultMaxAgeDays = 0;

    // Loads the file whether or not history is enabled, then prunes without saving.
    HistoryStore(Defaults& defaults, Clock& clock, QString filePath, QObject* parent = nullptr);

    // $XDG_DATA_HOME/murmurly/history.json (default ~/.local/share/murmurly/history.json).
    static QString defaultFilePath();

    bool enabled() const { return m_enabled; }
    const QList<HistoryEntry>& entries() const { return m_entries; }
    qint64 keepLast() const { return m_keepLast; }
    qint64 maxAgeDays() const { return m_maxAgeDays; }
    const QString& filePath() const { return m_filePath; }

    // Only stores the switch: turning history off keeps the entries and the file.
    void setEnabled(bool enabled);
    // For deleting from outside; the caller then calls save().
    void setEntries(const QList<HistoryEntry>& entries);
    // Store the limit, prune at once, save.
    void setKeepLast(qint64 count);
    void setMaxAgeDays(qint64 days);

    // Adds a finished dictation at the front when history is enabled, then prunes and saves.
    void record(const HistoryEntry& entry);

    // Entries whose raw or final text contains the query, ignoring case; the query is trimmed of
    // tabs and spaces, and an empty query gives every entry.
    QList<HistoryEntry> filtered(const QString& query) const;

    // Writes the file atomically (0600, in a 0700 folder). A file that could not be read at
    // start is first renamed to keptFilePath(); when that fails nothing is written over it.
    void save();

    // Where an unreadable history file is kept: beside it, named after it and the local time,
    // e.g. "history.unreadable-2026-11-24-003712.json".
    static QString keptFilePath(const QString& filePath, const QDateTime& when);

    // The file's content for these entries.
    static QByteArray encodeEntries(const QList<HistoryEntry>& entries);
    static std::optional<QList<HistoryEntry>> decodeEntries(const QByteArray& json);

signals:
    void enabledChanged(bool enabled);
    void entriesChanged();
    void keepLastChanged(qint64 count);
    void maxAgeDaysChanged(qint64 days);
    // The file that could not be read was kept under `keptPath` (once per run at most).
    void unreadableFileKept(const QString& keptPath);

private:
    // Age first, then count. True when something was removed.
    bool prune();

    // The file's content for the current entries. Entries never change once recorded, so each
    // one's JSON is kept by id, beside the entry it was made from, and a save only encodes the
    // entries it has not seen.
    QByteArray encodeCached();
    // Moves an unreadable file out of the way; false when it is still there.
    bool keepUnreadableFile();

    struct Encoded {
        HistoryEntry entry;
        QByteArray json;
    };

    Defaults& m_defaults;
    Clock& m_clock;
    QHash<QUuid, Encoded> m_encoded;
    QString m_filePath;
    bool m_enabled = false;
    QList<HistoryEntry> m_entries;
    qint64 m_keepLast = defaultKeepLast;
    qint64 m_maxAgeDays = defaultMaxAgeDays;
    bool m_fileUnreadable = false; // the file on disk holds something the load could not read
    bool m_keepFailureLogged = false;
};

} // namespace murmurly
