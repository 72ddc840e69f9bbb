// The servers the tests start for themselves end with the test process, even one killed outright:
// no Xvfb, PulseAudio, dbus-daemon or gnome-keyring is left running behind a crashed test.
#include "ChildProcess.h"
#include "WaitUntil.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>

#include <gtest/gtest.h>

#include <csignal>

using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

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

TEST(PrivateServers, DieWithTheTestProcessThatStartedThem) {
    QProcess holder;
    holder.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    endWithThisProcess(holder);
    holder.start(QStringLiteral(MURMURLY_SERVER_HOLDER), {});
    ASSERT_TRUE(holder.waitForStarted(5000)) << qPrintable(holder.errorString());

    // The process ids come once every server runs.
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
