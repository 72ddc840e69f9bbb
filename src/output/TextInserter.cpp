#include "output/TextInserter.h"

#include "core/LatencyTrace.h"
#include "core/Log.h"

#include <coroutine>

namespace murmurly {

// The wait between the chord and the restore. It ends when the clock's sleep ends or when the
// insertion is cancelled, whichever comes first; the other one then finds it over.
struct TextInserter::PendingRestore {
    std::coroutine_handle<> waiter;
    bool over = false;

    void end() {
        if (over) return;
        over = true;
        if (const auto handle = std::exchange(waiter, {})) handle.resume();
    }

    struct Awaiter {
        PendingRestore& pending;
        bool await_ready() const noexcept { return pending.over; }
        void await_suspend(std::coroutine_handle<> handle) noexcept { pending.waiter = handle; }
        void await_resume() const noexcept {}
    };
};

// An insertion's place in the line: it runs when the one before it hands on, or never when the
// line is dropped.
struct TextInserter::Turn {
    std::coroutine_handle<> waiter;
    bool given = false;
    bool dropped = false;

    void give() { wake(given); }
    void drop() { wake(dropped); }

    struct Awaiter {
        Turn& turn;
        bool await_ready() const noexcept { return turn.given || turn.dropped; }
        void await_suspend(std::coroutine_handle<> handle) noexcept { turn.waiter = handle; }
        void await_resume() const noexcept {}
    };

private:
    void wake(bool& flag) {
        flag = true;
        if (const auto handle = std::exchange(waiter, {})) handle.resume();
    }
};

TextInserter::TextInserter(Clipboard& clipboard, PasteKeys& pasteKeys, Clock& clock)
    : m_clipboard(clipboard)
    , m_pasteKeys(pasteKeys)
    , m_clock(clock) {
}

TextInserter::~TextInserter() {
    cancel();
}

QCoro::Task<> TextInserter::insert(QString text) {
    if (m_busy) {
        auto turn = std::make_shared<Turn>();
        m_waiting.append(turn);
        co_await Turn::Awaiter{*turn};
        if (turn->dropped) co_return;
        // Handed on by the one before: the inserter stayed busy, now with this insertion.
    }
    m_busy = true;

    const ClipboardSnapshot previous = m_clipboard.snapshot();
    m_clipboard.writeText(text);
    if (m_pasteKeys.paste())
        LatencyTrace::mark(LatencyTrace::pasteChordPosted);
    else
        qCCritical(lcApp, "Failed to create Ctrl+V key events");

    auto pending = std::make_shared<PendingRestore>();
    m_pending.append(pending);
    {
        QCoro::Task<> sleeper =
            endAfter(m_clock, std::chrono::milliseconds(m_restoreDelayMilliseconds), pending);
    } // detached: it ends the wait when the sleep is over, unless cancel() did first
    co_await PendingRestore::Awaiter{*pending};
    m_pending.removeOne(pending);

    m_clipboard.restore(previous);
    handOn();
}

void TextInserter::handOn() {
    if (m_waiting.isEmpty()) {
        m_busy = false;
        return;
    }
    // Runs the next insertion up to its own wait before this one's caller carries on.
    m_waiting.takeFirst()->give();
}

void TextInserter::cancel() {
    // The line is taken first, so that the restore below hands on to nobody.
    const auto waiting = std::exchange(m_waiting, {});
    // Ending a wait resumes its insertion, which removes it from the list: work on a copy.
    const auto pending = m_pending;
    for (const auto& wait : pending)
        wait->end();
    for (const auto& turn : waiting)
        turn->drop();
}

QCoro::Task<> TextInserter::endAfter(Clock& clock, std::chrono::milliseconds delay,
                                     std::shared_ptr<PendingRestore> pending) {
    co_await clock.sleep(delay);
    pending->end();
}

} // namespace murmurly
