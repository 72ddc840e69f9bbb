// Started by the private-servers test, which then kills it outright: starts every private server
// the tests use, prints their process ids on one line, and waits (a bounded time) to be killed.
#include "PrivateKeyring.h"
#include "PrivatePulseServer.h"
#include "XvfbServer.h"

#include <QCoreApplication>
#include <QThread>

#include <cstdio>

using namespace murmurly::testing;

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    XvfbServer xvfb;
    if (!xvfb.isRunning()) {
        std::fprintf(stderr, "Xvfb: %s\n", qPrintable(xvfb.error()));
        return 1;
    }
    PrivatePulseServer pulse;
    if (!pulse.isRunning()) {
        std::fprintf(stderr, "PulseAudio: %s\n", qPrintable(pulse.error()));
        return 1;
    }
    PrivateKeyring keyring;
    if (!keyring.error().isEmpty()) {
        std::fprintf(stderr, "keyring: %s\n", qPrintable(keyring.error()));
        return 1;
    }
    std::printf("servers %lld %lld %lld %lld\n", static_cast<long long>(xvfb.processId()),
                static_cast<long long>(pulse.processId()), static_cast<long long>(keyring.busProcessId()),
                static_cast<long long>(keyring.keyringProcessId()));
    std::fflush(stdout);
    QThread::sleep(60);
    return 0;
}
