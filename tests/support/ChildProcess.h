#pragma once

#include <QProcess>

namespace murmurly::testing {

// Ends `process` if it runs: asks it to terminate, and kills it when it has not ended within
// three seconds. Every wait is bounded.
void stopChild(QProcess& process);

} // namespace murmurly::testing
