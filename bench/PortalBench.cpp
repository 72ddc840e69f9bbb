// The trigger through the desktop's global-shortcuts portal: from the moment the desktop's side
// signals a shortcut's activation until onPress runs on the main thread, through Debian's real
// portal frontend on a private session bus. The desktop's side (a stand-in) stamps each signal
// with the monotonic clock, which this process shares.
#include "Figures.h"
#include "PrivateDesktopPortal.h"
#include "PrivateSessionBus.h"
#include "WaitUntil.h"
#include "app/PortalKeyEventSource.h"
#include "app/PortalRequest.h"
#include "core/SystemClock.h"
#include "hotkey/HotkeyMonitor.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <chrono>
#include <optional>
#include <vector>

using namespace murmurly;
using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;

namespace {

// Reads the stand-in's stamp off each Activated signal the frontend relays.
class SentStamps : public QObject {
    Q_OBJECT

public:
    std::optional<qint64> lastMicroseconds;

public slots:
    void activated(const QDBusMessage& message) {
        const QVariantMap options = qdbus_cast<QVariantMap>(message.arguments().value(3));
        const QVariant sent = options.value(QStringLiteral("x-murmurly-sent-us"));
        if (sent.isValid()) lastMicroseconds = sent.toLongLong();
    }
};

qint64 steadyMicroseconds(Steady::time_point at) {
    return std::chrono::duration_cast<std::chrono::microseconds>(at.time_since_epoch()).count();
}

void BM_PortalActivationToPress(benchmark::State& state) {
    testing::PrivateSessionBus bus;
    testing::PrivateDesktopPortal portal(bus.address());
    if (!bus.isRunning() || !portal.isRunning()) {
        state.SkipWithError("no private portal");
        return;
    }
    const QString name = QStringLiteral("murmurly-portal-bench");
    {
        QDBusConnection connection = QDBusConnection::connectToBus(bus.address(), name);
        SentStamps stamps;
        connection.connect(PortalRequest::service, PortalRequest::path, PortalShortcutSession::interface,
                           QStringLiteral("Activated"), &stamps, SLOT(activated(QDBusMessage)));
        PortalKeyEventSource source(connection);
        SystemClock clock;
        HotkeyMonitor monitor(source, clock);
        monitor.setBinding(HotkeyBinding{HotkeyBinding::Kind::key, 101, 0, QStringLiteral("F9")});
        bool pressed = false;
        bool released = false;
        Steady::time_point pressedAt;
        monitor.onPress = [&](Clock::TimePoint) {
            pressedAt = Steady::now();
            pressed = true;
        };
        monitor.onRelease = [&](Clock::TimePoint) { released = true; };
        if (!monitor.start() ||
            !testing::waitUntil([&] { return source.assignedTrigger().has_value(); }, 30s)) {
            state.SkipWithError("the portal did not bind the shortcut");
            return;
        }
        bool timedOut = false;
        QTimer guard;
        guard.setSingleShot(true);
        QObject::connect(&guard, &QTimer::timeout, [&] { timedOut = true; });

        std::vector<double> fromSignal;
        std::vector<double> fromCall;
        for (auto _ : state) {
            pressed = false;
            stamps.lastMicroseconds.reset();
            timedOut = false;
            guard.start(2000);
            const Steady::time_point called = Steady::now();
            if (portal.activate(PortalKeyEventSource::dictateId) != 1u) {
                state.SkipWithError("the stand-in did not signal");
                break;
            }
            // The main thread sleeps in its event loop as the program's does, until the edge wakes it.
            while ((!pressed || !stamps.lastMicroseconds) && !timedOut)
                QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            guard.stop();
            if (!pressed) {
                state.SkipWithError("no press edge");
                break;
            }
            const double sinceCall = std::chrono::duration<double>(pressedAt - called).count();
            fromCall.push_back(sinceCall);
            double seconds = sinceCall;
            if (stamps.lastMicroseconds) {
                seconds = double(steadyMicroseconds(pressedAt) - *stamps.lastMicroseconds) / 1e6;
                fromSignal.push_back(seconds);
            }
            state.SetIterationTime(seconds);

            released = false;
            portal.deactivate(PortalKeyEventSource::dictateId);
            if (!testing::waitUntil([&] { return released; }, 2s)) {
                state.SkipWithError("no release edge");
                break;
            }
        }
        if (!fromSignal.empty()) {
            state.counters["signal_p50_us"] = bench::percentile(fromSignal, 0.50) * 1e6;
            state.counters["signal_p95_us"] = bench::percentile(fromSignal, 0.95) * 1e6;
        }
        state.counters["call_p50_us"] = bench::percentile(fromCall, 0.50) * 1e6;
        state.counters["call_p95_us"] = bench::percentile(fromCall, 0.95) * 1e6;
    }
    QDBusConnection::disconnectFromBus(name);
}

const bool figures = [] {
    bench::addFigure("BM_PortalActivationToPress",
                     {"<= 5 ms p50 (portal signal -> press on the main thread)", 5e-3, std::nullopt});
    return true;
}();

} // namespace

BENCHMARK(BM_PortalActivationToPress)->UseManualTime()->Iterations(200)->Unit(benchmark::kMicrosecond);

#include "PortalBench.moc"
