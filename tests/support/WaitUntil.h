#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

#include <chrono>

namespace murmurly::testing {

// Runs the event loop until `condition` holds or `timeout` passes; the answer is the condition's
// last value. The loop keeps running so that queued edges, process output and clipboard requests
// from other X clients are served while the test waits.
template <typename Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds timeout = std::chrono::milliseconds(20000)) {
    QDeadlineTimer deadline(timeout);
    while (!condition()) {
        if (deadline.hasExpired()) return condition();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(1);
    }
    return true;
}

// How long a test waits for a dictation's text after the trigger's release. The program's own
// limits (the recognizer's finalisation, the keyring, the paste) add up to well under this; on
// a machine busy with other work, and under the sanitizers, each of them takes far longer than
// its usual fraction of a second. Waits end as soon as the text is there.
constexpr std::chrono::milliseconds insertionWait{60000};

// Runs the event loop for `duration`, for checks that nothing more happens.
inline void keepRunning(std::chrono::milliseconds duration) {
    waitUntil([] { return false; }, duration);
}

} // namespace murmurly::testing
