#include "ChildProcess.h"

namespace murmurly::testing {

void stopChild(QProcess& process) {
    if (process.state() == QProcess::NotRunning) return;
    process.terminate();
    if (!process.waitForFinished(3000)) {
        process.kill();
        process.waitForFinished(3000);
    }
}

} // namespace murmurly::testing
