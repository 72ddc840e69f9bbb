#include "output/ClipboardItem.h"

namespace murmurly {

ClipboardItem::ClipboardItem(std::initializer_list<Entry> entries) {
    for (const Entry& entry : entries)
        set(entry.first, entry.second);
}

void ClipboardItem::set(const QString& type, const QByteArray& bytes) {
    for (Entry& entry : m_entries) {
        if (entry.first == type) {
            entry.second = bytes;
            return;
        }
    }
    m_entries.append({type, bytes});
}

std::optional<QByteArray> ClipboardItem::data(const QString& type) const {
    for (const Entry& entry : m_entries)
        if (entry.first == type) return entry.second;
    return std::nullopt;
}

} // namespace murmurly
