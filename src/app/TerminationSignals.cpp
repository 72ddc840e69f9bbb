#include "app/TerminationSignals.h"

#include "core/Log.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace murmurly {

namespace {

int pipeFds[2] = {-1, -1};

} // namespace

TerminationSignals::TerminationSignals(QObject* parent)
    : QObject(parent) {
    if (pipe2(pipeFds, O_CLOEXEC | O_NONBLOCK) != 0) {
        qCWarning(lcApp, "No pipe for termination signals; SIGTERM ends the program at once");
        return;
    }
    m_notifier = new QSocketNotifier(pipeFds[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &TerminationSignals::received);
    struct sigaction action = {};
    action.sa_handler = &TerminationSignals::handle;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

TerminationSignals::~TerminationSignals() {
    if (pipeFds[0] < 0) return;
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGINT, SIG_DFL);
    delete m_notifier;
    close(pipeFds[0]);
    close(pipeFds[1]);
    pipeFds[0] = pipeFds[1] = -1;
}

void TerminationSignals::handle(int signal) {
    // Only async-signal-safe calls here.
    const unsigned char byte = static_cast<unsigned char>(signal);
    [[maybe_unused]] const ssize_t written = write(pipeFds[1], &byte, 1);
}

void TerminationSignals::received() {
    unsigned char byte = 0;
    while (read(pipeFds[0], &byte, 1) > 0) {
    }
    qCInfo(lcApp, "Quitting on signal %d", int(byte));
    QCoreApplication::quit();
}

} // namespace murmurly
