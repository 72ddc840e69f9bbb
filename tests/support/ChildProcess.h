#pragma once

#include <QProcess>

namespace murmurly::testing {

// Makes `process`, once started, die with the thread that starts it: a test that crashes or is
// killed leaves no server running behind it. (The kernel signals the child when the thread that
// forked it ends; the private servers are started from the test's main thread.)
void endWithThisProcess(QProcess& process);

// Ends `process` if it runs: asks it to terminate, and kills it when it has not ended within
// three seconds. Every wait is bounded.
void stopChild(QProcess& process);

} // namespace murmurly::testing
