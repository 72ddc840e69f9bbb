#pragma once

#include "output/Clipboard.h"

#include <QStringList>

namespace murmurly::testing {

// A clipboard in memory that notes each operation, so tests can check the order of the steps.
class FakeClipboard final : public Clipboard {
public:
    ClipboardSnapshot snapshot() override {
        operations << QStringLiteral("snapshot");
        return items;
    }
    void writeText(const QString& text) override {
        operations << QStringLiteral("write");
        items = {ClipboardItem{{QStringLiteral("text/plain"), text.toUtf8()}}};
    }
    void restore(const ClipboardSnapshot& snapshot) override {
        operations << QStringLiteral("restore");
        items.clear();
        items = snapshot;
    }

    // What the clipboard holds as plain text, or a null string.
    QString text() const {
        if (items.size() != 1) return {};
        const auto bytes = items.first().data(QStringLiteral("text/plain"));
        return bytes ? QString::fromUtf8(*bytes) : QString();
    }

    ClipboardSnapshot items;
    QStringList operations;
};

} // namespace murmurly::testing
