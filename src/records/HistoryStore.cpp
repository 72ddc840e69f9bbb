#include "records/HistoryStore.h"

#include "core/CaseFolding.h"
#include "core/Clock.h"
#include "core/Defaults.h"
#include "core/JsonFields.h"
#include "core/Log.h"
#include "core/ReferenceDate.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

#include <algorithm>

namespace murmurly {

namespace {

constexpr double secondsPerDay = 86400.0;

bool isHorizontalSpace(QChar c) {
    return c == QLatin1Char('\t') || c.category() == QChar::Separator_Space;
}

QString trimmedHorizontally(const QString& text) {
    qsizetype start = 0;
    qsizetype end = text.size();
    while (start < end && isHorizontalSpace(text.at(start)))
        ++start;
    while (end > start && isHorizontalSpace(text.at(end - 1)))
        --end;
    return text.mid(start, end - start);
}

} // namespace

HistoryStore::HistoryStore(Defaults& defaults, Clock& clock, QString filePath, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_clock(clock)
    , m_filePath(std::move(filePath)) {
    m_enabled = m_defaults.boolValue(enabledKey).value_or(false);
    m_keepLast = m_defaults.intValue(keepLastKey).value_or(defaultKeepLast);
    m_maxAgeDays = m_defaults.intValue(maxAgeDaysKey).value_or(defaultMaxAgeDays);

    QFile file(m_filePath);
    if (file.open(QIODevice::ReadOnly)) {
        if (auto entries = decodeEntries(file.readAll()))
            m_entries = std::move(*entries);
        else
            m_fileUnreadable = file.size() > 0; // an empty file holds nothing worth keeping
    } else {
        m_fileUnreadable = file.exists();
    }
    prune();
}

QString HistoryStore::defaultFilePath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/murmurly/history.json");
}

void HistoryStore::setEnabled(bool enabled) {
    const bool changed = enabled != m_enabled;
    m_enabled = enabled;
    m_defaults.setBool(enabledKey, enabled);
    if (changed) emit enabledChanged(enabled);
}

void HistoryStore::setEntries(const QList<HistoryEntry>& entries) {
    if (entries == m_entries) return;
    m_entries = entries;
    emit entriesChanged();
}

void HistoryStore::setKeepLast(qint64 count) {
    const bool changed = count != m_keepLast;
    m_keepLast = count;
    m_defaults.setInt(keepLastKey, count);
    if (prune()) emit entriesChanged();
    save();
    if (changed) emit keepLastChanged(count);
}

void HistoryStore::setMaxAgeDays(qint64 days) {
    const bool changed = days != m_maxAgeDays;
    m_maxAgeDays = days;
    m_defaults.setInt(maxAgeDaysKey, days);
    if (prune()) emit entriesChanged();
    save();
    if (changed) emit maxAgeDaysChanged(days);
}

void HistoryStore::record(const HistoryEntry& entry) {
    if (!m_enabled) return;
    m_entries.prepend(entry);
    prune();
    save();
    emit entriesChanged();
}

bool HistoryStore::prune() {
    const qsizetype before = m_entries.size();
    if (m_maxAgeDays >= 1) {
        const double cutoff =
            ReferenceDate::seconds(m_clock.now()) - static_cast<double>(m_maxAgeDays) * secondsPerDay;
        m_entries.removeIf([cutoff](const HistoryEntry& e) { return e.timestamp < cutoff; });
    }
    if (m_keepLast >= 1 && m_entries.size() > m_keepLast)
        m_entries.resize(static_cast<qsizetype>(m_keepLast));
    return m_entries.size() != before;
}

QList<HistoryEntry> HistoryStore::filtered(const QString& query) const {
    const QString needle = trimmedHorizontally(query);
    if (needle.isEmpty()) return m_entries;
    QList<HistoryEntry> found;
    for (const HistoryEntry& entry : m_entries) {
        if (CaseFolding::containsIgnoringCase(entry.rawText, needle) ||
            (entry.cleanedText && CaseFolding::containsIgnoringCase(*entry.cleanedText, needle)))
            found.append(entry);
    }
    return found;
}

QString HistoryStore::keptFilePath(const QString& filePath, const QDateTime& when) {
    const QFileInfo info(filePath);
    const QString stem = info.completeBaseName();
    const QString suffix = info.suffix().isEmpty() ? QString() : QLatin1Char('.') + info.suffix();
    return info.dir().filePath(stem + QStringLiteral(".unreadable-") +
                               when.toString(QStringLiteral("yyyy-MM-dd-HHmmss")) + suffix);
}

bool HistoryStore::keepUnreadableFile() {
    if (!QFile::exists(m_filePath)) return true; // gone meanwhile: nothing to keep
    const QDateTime when = QDateTime::fromSecsSinceEpoch(
        std::chrono::duration_cast<std::chrono::seconds>(m_clock.now().time_since_epoch()).count());
    QString kept = keptFilePath(m_filePath, when);
    // Never over an earlier kept file (two bad loads within one second).
    for (int n = 2; QFile::exists(kept); ++n) {
        const QFileInfo info(keptFilePath(m_filePath, when));
        kept = info.dir().filePath(info.completeBaseName() + QLatin1Char('-') + QString::number(n) +
                                   QLatin1Char('.') + info.suffix());
    }
    if (!QFile::rename(m_filePath, kept)) {
        if (!m_keepFailureLogged)
            qCWarning(lcApp,
                      "History file %s could not be read and could not be kept aside; it is not overwritten",
                      qUtf8Printable(m_filePath));
        m_keepFailureLogged = true;
        return false;
    }
    qCWarning(lcApp, "History file could not be read; kept it as %s", qUtf8Printable(kept));
    emit unreadableFileKept(kept);
    return true;
}

void HistoryStore::save() {
    if (m_fileUnreadable) {
        if (!keepUnreadableFile()) return;
        m_fileUnreadable = false;
    }
    const QByteArray bytes = encodeCached();
    const QString folder = QFileInfo(m_filePath).absolutePath();
    QDir().mkpath(folder); // a failure shows as a failed write below, which is ignored
    QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);

    QSaveFile file(m_filePath);
    if (!file.open(QIODevice::WriteOnly)) return;
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        return;
    }
    file.commit();
}

QByteArray HistoryStore::encodeEntries(const QList<HistoryEntry>& entries) {
    // Written directly rather than through a JSON tree: the file is rewritten on every dictation.
    QByteArray out;
    out.reserve(entries.size() * 384 + 2);
    out.append('[');
    for (qsizetype i = 0; i < entries.size(); ++i) {
        if (i > 0) out.append(',');
        entries.at(i).appendJson(out);
    }
    out.append(']');
    return out;
}

QByteArray HistoryStore::encodeCached() {
    QHash<QUuid, Encoded> next;
    next.reserve(m_entries.size());
    QList<QByteArray> parts;
    parts.reserve(m_entries.size());
    qsizetype total = 2;
    for (const HistoryEntry& entry : m_entries) {
        // The whole entry is compared, not just its id: a hand-edited file may repeat an id.
        const auto cached = m_encoded.constFind(entry.id);
        QByteArray json;
        if (cached != m_encoded.cend() && cached->entry == entry)
            json = cached->json;
        else
            entry.appendJson(json);
        total += json.size() + 1;
        next.insert(entry.id, Encoded{entry, json});
        parts.append(std::move(json));
    }
    m_encoded = std::move(next); // pruned entries leave the cache here

    QByteArray out;
    out.reserve(total);
    out.append('[');
    for (qsizetype i = 0; i < parts.size(); ++i) {
        if (i > 0) out.append(',');
        out.append(parts.at(i));
    }
    out.append(']');
    return out;
}

std::optional<QList<HistoryEntry>> HistoryStore::decodeEntries(const QByteArray& json) {
    const auto array = JsonFields::parse(json);
    if (!array.is_array()) return std::nullopt;
    QList<HistoryEntry> entries;
    entries.reserve(static_cast<qsizetype>(array.size()));
    for (const auto& object : array) {
        auto entry = HistoryEntry::fromJsonObject(object);
        if (!entry) return std::nullopt;
        entries.append(std::move(*entry));
    }
    return entries;
}

} // namespace murmurly
