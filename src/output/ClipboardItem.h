#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

#include <optional>

namespace murmurly {

// One item of the clipboard: every type it offers with that type's bytes, in the order offered.
// A type appears once; setting it again replaces its bytes in place.
class ClipboardItem {
public:
    using Entry = QPair<QString, QByteArray>;

    ClipboardItem() = default;
    ClipboardItem(std::initializer_list<Entry> entries);

    void set(const QString& type, const QByteArray& bytes);
    std::optional<QByteArray> data(const QString& type) const;
    const QList<Entry>& entries() const { return m_entries; }
    bool isEmpty() const { return m_entries.isEmpty(); }

    friend bool operator==(const ClipboardItem&, const ClipboardItem&) = default;

private:
    QList<Entry> m_entries;
};

// The whole clipboard: its items in order. Empty when the clipboard holds nothing.
using ClipboardSnapshot = QList<ClipboardItem>;

} // namespace murmurly
