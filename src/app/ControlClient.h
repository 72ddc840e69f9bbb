#pragma once

#include <QDBusConnection>
#include <QString>

#include <chrono>

namespace murmurly {

// Calls one method of the running program's remote control (DBusControl) on the session bus.
class ControlClient {
public:
    enum class Outcome {
        delivered,  // the running program took the call
        notRunning, // nobody owns the name, or there is no session bus
        failed,     // it runs but the call failed; `error` says how
    };

    struct Result {
        Outcome outcome = Outcome::failed;
        QString error;
    };

    // How long one call may wait for its answer.
    static constexpr std::chrono::milliseconds callTimeout{5000};
    // A program that has just claimed its name needs a moment before its control object is on
    // the bus; calls that find no object yet are repeated for this long.
    static constexpr std::chrono::milliseconds startUpGrace{3000};

    // Exit statuses of a control option run from the command line.
    static constexpr int exitDelivered = 0;
    static constexpr int exitNotRunning = 1;

    static Result call(const QString& method, QDBusConnection bus = QDBusConnection::sessionBus());
    // Calls `method` for a control option of the command line: says on standard error what went
    // wrong, if anything, and returns the exit status.
    static int runOption(const QString& method);
};

} // namespace murmurly
