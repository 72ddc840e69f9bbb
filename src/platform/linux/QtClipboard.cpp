#include "platform/linux/QtClipboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

#include <algorithm>

namespace murmurly {

namespace {

// Names Qt lists among the clipboard's types that are not content: the X selection protocol's own
// targets, and the image Qt decodes from the real image types (reading it costs a full decode).
bool isContentType(const QString& type) {
    static const QStringList notContent = {
        QStringLiteral("TARGETS"),
        QStringLiteral("MULTIPLE"),
        QStringLiteral("TIMESTAMP"),
        QStringLiteral("SAVE_TARGETS"),
        QStringLiteral("DELETE"),
        QStringLiteral("INCR"),
        QStringLiteral("INSERT_SELECTION"),
        QStringLiteral("INSERT_PROPERTY"),
        QStringLiteral("application/x-qt-image"),
    };
    return !notContent.contains(type);
}

} // namespace

QtClipboard::QtClipboard(QClipboard* clipboard)
    : m_clipboard(clipboard ? clipboard : QGuiApplication::clipboard()) {
}

ClipboardSnapshot QtClipboard::snapshot() {
    const QMimeData* data = m_clipboard->mimeData(QClipboard::Clipboard);
    if (!data) return {};
    const QStringList formats = data->formats();
    if (std::none_of(formats.begin(), formats.end(), isContentType)) return {};
    ClipboardItem item;
    for (const QString& format : formats) {
        if (!isContentType(format)) continue;
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
