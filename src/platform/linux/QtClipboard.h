#pragma once

#include "output/Clipboard.h"

class QClipboard;

namespace murmurly {

// The desktop clipboard through Qt: every MIME type of its content with its bytes. On X11 the
// clipboard holds a single item. Used on the main thread, whose event loop must run for other
// applications to read what this process put on the clipboard.
class QtClipboard final : public Clipboard {
public:
    // Marks clipboard content that clipboard managers (Klipper, and those that follow it) must
    // not record.
    static inline const QString passwordManagerHintType = QStringLiteral("x-kde-passwordManagerHint");

    // The application's clipboard by default (a QGuiApplication must exist).
    explicit QtClipboard(QClipboard* clipboard = nullptr);

    ClipboardSnapshot snapshot() override;
    void writeText(const QString& text) override;
    // X11 has one item: a snapshot of several is written as its first.
    void restore(const ClipboardSnapshot& snapshot) override;

private:
    QClipboard* m_clipboard;
};

} // namespace murmurly
