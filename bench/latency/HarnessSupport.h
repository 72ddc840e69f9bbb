#pragma once

#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class QProcess;

namespace murmurly::bench {

// The monotonic clock's reading in microseconds: the clock the program stamps its latency lines
// with, shared by every process on the machine.
long long monotonicMicroseconds();

// The value below which `fraction` of the samples lie (nearest rank); 0 without samples.
double nearestRank(std::vector<double> samples, double fraction);

// Ends the harness with a message on standard error.
[[noreturn]] void fail(const char* what, const QString& detail = {});

// Low noise played into the private sink for as long as the harness runs: a real microphone hears a
// room all the time, and the sink's monitor then hands a new recording its first audio as a
// microphone would, instead of waiting for the next loud sound.
std::unique_ptr<QProcess> startRoomNoise();

// Runs pactl against the private audio server (PULSE_SERVER points at it); fails the harness when
// it does not succeed.
void pactl(const QStringList& arguments);

} // namespace murmurly::bench
