#pragma once

#include <QObject>

class QSocketNotifier;

namespace murmurly {

// Quits the application's event loop on SIGTERM (logout, `kill`) and SIGINT (Ctrl+C), so the
// program leaves through its destructors: a paste in progress puts the user's clipboard back,
// grabs and streams are closed. The signal handler only writes to a pipe; the quit happens on
// the main thread. One instance per process.
class TerminationSignals : public QObject {
    Q_OBJECT

public:
    explicit TerminationSignals(QObject* parent = nullptr);
    ~TerminationSignals() override;

private:
    static void handle(int signal);
    void received();

    QSocketNotifier* m_notifier = nullptr;
};

} // namespace murmurly
