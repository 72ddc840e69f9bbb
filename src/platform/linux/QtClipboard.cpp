#include "platform/linux/QtClipboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

namespace murmurly {

QtClipboard::QtClipboard(QClipboard* clipboard)
    : m_clipboard(clipboard ? clipboard : QGuiApplication::clipboard()) {
}

ClipboardSnapshot QtClipboard::snapshot() {
    const QMimeData* data = m_clipboard->mimeData(QClipboard::Clipboard);
    if (!data) return {};
    const QStringList formats = data->formats();
    if (formats.isEmpty()) return {};
    ClipboardItem item;
    for (const QString& format : formats) {
        const QByteArray bytes = data->data(format);
        // Qt cannot tell an unreadable type from an empty one; neither is worth restoring.
        if (!bytes.isEmpty()) item.set(format, bytes);
    }
    return {item};
}

void QtClipboard::writeText(const QString& text) {
    auto* data = new QMimeData;
    data->setText(text);
    data->setData(passwordManagerHintType, QByteArrayLiteral("secret"));
    m_clipboard->setMimeData(data, QClipboard::Clipboard);
}

void QtClipboard::restore(const ClipboardSnapshot& snapshot) {
    if (snapshot.isEmpty()) {
        m_clipboard->clear(QClipboard::Clipboard);
        return;
    }
    auto* data = new QMimeData;
    for (const auto& [type, bytes] : snapshot.first().entries())
        data->setData(type, bytes);
    m_clipboard->setMimeData(data, QClipboard::Clipboard); // replaces the whole content at once
}

} // namespace murmurly
