#pragma once

#include "core/Clock.h"
#include "output/Clipboard.h"
#include "output/PasteKeys.h"

#include <QCoro/QCoroTask>
#include <QList>
#include <QString>

#include <cstdint>
#include <memory>

namespace murmurly {

// Types a text into whatever field has the keyboard focus, the way a person would: the text goes
// onto the clipboard, the paste chord is posted, and once the target has had time to read the
// clipboard the previous contents are put back.
class TextInserter {
public:
    static constexpr std::int64_t defaultRestoreDelayMilliseconds = 180;

    TextInserter(Clipboard& clipboard, PasteKeys& pasteKeys, Clock& clock);
    ~TextInserter();

    // Time between posting the chord and restoring the previous clipboard.
    std::int64_t restoreDelayMilliseconds() const { return m_restoreDelayMilliseconds; }

    // Snapshot, write the text, post the chord, wait, restore. Never fails: a chord that cannot be
    // made is logged, and the clipboard is restored all the same. Runs on the main thread; the
    // wait suspends without blocking it. Insertions run one at a time, in the order of the calls:
    // one that comes while another is still pasting waits until that one has put the clipboard
    // back, so that each snapshot holds the user's own contents and each chord pastes its text.
    QCoro::Task<> insert(QString text);

    // Cuts the wait of the insertion in progress short, so its clipboard is restored at once, and
    // drops the insertions still waiting for their turn: nothing of theirs is pasted.
    void cancel();

private:
    struct PendingRestore;
    struct Turn;

    // Lets the next waiting insertion run, or marks the inserter free when none waits.
    void handOn();

    // Runs detached: its frame keeps the shared wait alive until the sleep is over.
    static QCoro::Task<> endAfter(Clock& clock, std::chrono::milliseconds delay,
                                  std::shared_ptr<PendingRestore> pending);

    Clipboard& m_clipboard;
    PasteKeys& m_pasteKeys;
    Clock& m_clock;
    std::int64_t m_restoreDelayMilliseconds = defaultRestoreDelayMilliseconds;
    QList<std::shared_ptr<PendingRestore>> m_pending;
    bool m_busy = false;                    // an insertion is between its snapshot and restore
    QList<std::shared_ptr<Turn>> m_waiting; // insertions waiting for it, oldest first
};

} // namespace murmurly
