// The servers the tests start for themselves end with the test process, even one killed outright:
// no Xvfb, PulseAudio, dbus-daemon or gnome-keyring is left running behind a crashed test.
#include "ChildProcess.h"
#include "PrivateKeyring.h"
#include "PrivatePulseServer.h"
#include "WaitUntil.h"
#include "XvfbServer.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

// Set for the child process of the test below.
constexpr const char* holderVariable = "MURMURLY_TEST_HOLD_SERVERS";

// Whether process `pid` has ended: it is gone, or it is a zombie nobody has reaped yet.
bool hasEnded(qint64 pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly)) return true;
    const QByteArray line = stat.readAll();
    // "pid (name) state …": the state follows the name's closing parenthesis.
    const qsizetype close = line.lastIndexOf(')');
    if (close < 0 || close + 2 >= line.size()) return true;
    const char state = line.at(close + 2);
    return state == 'Z' || state == 'X';
}

} // namespace

// Run only by the test below, as its child: starts every private server, tells their process
// ids, and waits to be killed (for a bounded time).
TEST(PrivateServers, DISABLED_HoldServersUntilKilled) {
    if (!qEnvironmentVariableIsSet(holderVariable)) GTEST_SKIP() << "started by DieWithTheTestProcess";
    XvfbServer xvfb;
    ASSERT_TRUE(xvfb.isRunning()) << qPrintable(xvfb.error());
    PrivatePulseServer pulse;
    ASSERT_TRUE(pulse.isRunning()) << qPrintable(pulse.error());
    PrivateKeyring keyring;
    ASSERT_EQ(keyring.error(), QString()) << qPrintable(keyring.error());
    std::printf("servers %lld %lld %lld %lld\n", static_cast<long long>(xvfb.processId()),
                static_cast<long long>(pulse.processId()), static_cast<long long>(keyring.busProcessId()),
                static_cast<long long>(keyring.keyringProcessId()));
    std::fflush(stdout);
    QThread::sleep(60);
}

TEST(PrivateServers, DieWithTheTestProcessThatStartedThem) {
    QProcess holder;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(holderVariable), QStringLiteral("1"));
    holder.setProcessEnvironment(environment);
    holder.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    endWithThisProcess(holder);
    holder.start(QCoreApplication::applicationFilePath(),
                 {QStringLiteral("--gtest_filter=PrivateServers.DISABLED_HoldServersUntilKilled"),
                  QStringLiteral("--gtest_also_run_disabled_tests")});
    ASSERT_TRUE(holder.waitForStarted(5000)) << qPrintable(holder.errorString());

    // GoogleTest's own lines come first; the process ids follow once every server runs.
    QByteArray output;
    QList<qint64> servers;
    const QDeadlineTimer deadline(30000);
    while (servers.isEmpty() && !deadline.hasExpired() && holder.state() == QProcess::Running) {
        holder.waitForReadyRead(200);
        output += holder.readAllStandardOutput();
        for (const QByteArray& line : output.split('\n')) {
            if (!line.startsWith("servers ") || !output.contains(line + '\n')) continue;
            for (const QByteArray& field : line.split(' ').mid(1))
                servers << field.toLongLong();
        }
    }
    ASSERT_EQ(servers.size(), 4) << output.constData();
    for (const qint64 pid : servers) {
        ASSERT_GT(pid, 0);
        ASSERT_FALSE(hasEnded(pid)) << pid;
    }

    ::kill(pid_t(holder.processId()), SIGKILL);
    ASSERT_TRUE(holder.waitForFinished(5000));
    EXPECT_EQ(holder.exitStatus(), QProcess::CrashExit);

    for (const qint64 pid : servers)
        EXPECT_TRUE(waitUntil([pid] { return hasEnded(pid); }, 10s))
            << "server " << pid << " outlived its test";
    // Should one have survived after all, it does not outlive this test.
    for (const qint64 pid : servers)
        if (!hasEnded(pid)) ::kill(pid_t(pid), SIGKILL);
}
