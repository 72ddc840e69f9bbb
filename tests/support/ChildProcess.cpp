#include "ChildProcess.h"

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace murmurly::testing {

void endWithThisProcess(QProcess& process) {
    const pid_t parent = getpid();
    process.setChildProcessModifier([parent] {
        // Runs in the child between fork and exec.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        // The test may have died before the request above took effect.
        if (getppid() != parent) _exit(127);
    });
}

void stopChild(QProcess& process) {
    if (process.state() == QProcess::NotRunning) return;
    process.terminate();
    if (!process.waitForFinished(3000)) {
        process.kill();
        process.waitForFinished(3000);
    }
}

} // namespace murmurly::testing
