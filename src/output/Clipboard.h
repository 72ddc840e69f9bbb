#pragma once

#include "output/ClipboardItem.h"

namespace murmurly {

// The system clipboard as the text inserter needs it: read everything on it, put a text on it for
// a moment, and put the previous contents back.
class Clipboard {
public:
    virtual ~Clipboard() = default;

    // Every item with every type whose bytes could be read, in order; types that cannot be read
    // are left out, an item whose types all failed is kept empty.
    virtual ClipboardSnapshot snapshot() = 0;
    // Replaces the contents with `text` as plain text (one item), marked as transient so that
    // clipboard managers do not keep it.
    virtual void writeText(const QString& text) = 0;
    // Clears the clipboard, then, unless `snapshot` is empty, writes its items in one go in their
    // former order. An empty snapshot leaves the clipboard empty.
    virtual void restore(const ClipboardSnapshot& snapshot) = 0;
};

} // namespace murmurly
