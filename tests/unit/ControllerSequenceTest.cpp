// Random sequences of everything that can happen around a dictation — presses, releases, second
// taps, Esc, time passing (watchdog polls, the five-minute cap, lost key-ups), starts that fail or
// take their time, finishes that hang or fail, cleanups that are slow or fail — in both capture
// modes, checked after every step and once everything has run out.
#include "ControllerHarness.h"

#include "hotkey/HotkeyMonitor.h"
#include "hotkey/KeyCodes.h"
#include "records/HistoryStore.h"

#include <QLoggingCategory>

#include <gtest/gtest.h>

#include <random>

using namespace murmurly;
using namespace std::chrono_literals;
using murmurly::testing::ControllerHarness;
using murmurly::testing::FakeSessionScript;

namespace {

struct Dictation {
    QString token; // unique text in its transcript; empty for a dictation that heard nothing
    bool startFails = false;
    enum class End { open, stopped, discarded } end = End::open;

    bool mustBeInserted() const { return end == End::stopped && !startFails && !token.isEmpty(); }
};

class Sequence {
public:
    Sequence(std::uint32_t seed, CaptureMode mode)
        : m_rng(seed)
        , m_mode(mode) {
        h.defaults.setBool(HistoryStore::enabledKey, true);
        h.defaults.setString(AppController::captureModeKey, CaptureModes::rawValue(mode));
        h.pasteKeys.onPaste = [this] { m_pasted << h.clipboard.text(); };
        h.localModel.answer = [this](const QString& userTurn) {
            for (const QString& token : std::as_const(m_failingCleanups))
                if (userTurn.contains(token))
                    return LocalLanguageModel::Generation{std::nullopt, QStringLiteral("no")};
            return LocalLanguageModel::Generation{QStringLiteral("Clean ") + userTurn, {}};
        };
        h.controller();
    }

    // One random step; false when an invariant broke (the failure is already reported).
    bool step() {
        AppController& c = h.controller();
        const DictationState before = c.state();
        switch (pick(13)) {
        case 0:
        case 1:
        case 2:
            press(before);
            break;
        case 3:
        case 4:
            release(before);
            break;
        case 5:
            esc(before);
            break;
        case 6:
            note(QStringLiteral("advance short"));
            h.advance(std::chrono::milliseconds(10 + pick(200)));
            break;
        case 7:
            note(QStringLiteral("advance long"));
            h.advance(std::chrono::milliseconds(300 + pick(2000)));
            break;
        case 8:
            if (pick(10) == 0) {
                note(QStringLiteral("advance past the finalisation limit"));
                h.advance(9s);
            } else if (pick(40) == 0) {
                note(QStringLiteral("advance past the recording limit"));
                advanceCoarsely(301s);
            }
            break;
        case 9:
            // The trigger key as the live keyboard state reports it, for the lost-release check.
            if (h.keyState.down.empty()) {
                note(QStringLiteral("key state down"));
                h.keyState.down.insert(KeyCodes::rightOption);
            } else {
                note(QStringLiteral("key state up"));
                h.keyState.down.clear();
            }
            break;
        case 10:
            if (murmurly::testing::FakeRecognizerSession* session = h.session();
                session && session->startIsWaiting()) {
                note(QStringLiteral("start goes on"));
                session->releaseStart();
                h.settle();
            }
            break;
        case 11:
            if (h.localModel.waitingCount() > 0) {
                note(QStringLiteral("cleanup answers"));
                h.localModel.releaseWaiting();
                h.settle();
            }
            break;
        case 12:
            configureCleanup();
            break;
        }
        noteUnexplainedEnd(before);
        return checkInvariants();
    }

    // Ends what is running, lets every wait run out, and checks the outcome of every dictation.
    void finishAndCheck() {
        AppController& c = h.controller();
        if (c.state() == DictationState::recording) {
            note(QStringLiteral("final stop"));
            h.advance(200ms);
            noteUnexplainedEnd(DictationState::recording);
            if (c.state() == DictationState::recording) {
                if (m_current >= 0 && m_dictations[m_current].end == Dictation::End::open)
                    m_dictations[m_current].end = Dictation::End::stopped;
                c.toggleDictation();
            }
        }
        for (int i = 0; i < 40 && !isQuiet(); ++i) {
            if (murmurly::testing::FakeRecognizerSession* session = h.session();
                session && session->startIsWaiting())
                session->releaseStart();
            h.localModel.releaseWaiting();
            h.advance(10s);
        }
        ASSERT_TRUE(isQuiet()) << qPrintable(trail());
        ASSERT_EQ(c.state(), DictationState::idle) << qPrintable(trail());
        ASSERT_FALSE(c.hasEngine()) << qPrintable(trail());
        ASSERT_EQ(*h.speech.liveSessions, 0) << qPrintable(trail());
        ASSERT_FALSE(h.microphone->isRunning()) << qPrintable(trail());

        int expected = 0;
        for (const Dictation& d : std::as_const(m_dictations)) {
            const int pastes = d.token.isEmpty() ? 0 : countContaining(m_pasted, d.token);
            int recorded = 0;
            for (const HistoryEntry& entry : c.history().entries())
                if (!d.token.isEmpty() && entry.rawText.contains(d.token)) ++recorded;
            if (d.mustBeInserted()) {
                ++expected;
                ASSERT_EQ(pastes, 1) << qPrintable(d.token) << qPrintable(trail());
                ASSERT_EQ(recorded, 1) << qPrintable(d.token) << qPrintable(trail());
            } else {
                ASSERT_EQ(pastes, 0) << qPrintable(d.token) << qPrintable(trail());
                ASSERT_EQ(recorded, 0) << qPrintable(d.token) << qPrintable(trail());
            }
        }
        ASSERT_EQ(m_pasted.size(), expected) << qPrintable(trail());
        ASSERT_EQ(c.history().entries().size(), expected) << qPrintable(trail());
    }

    int dictationCount() const { return static_cast<int>(m_dictations.size()); }
    int insertedCount() const { return static_cast<int>(m_pasted.size()); }

private:
    std::uint32_t pick(std::uint32_t n) {
        return std::uniform_int_distribution<std::uint32_t>(0, n - 1)(m_rng);
    }

    void note(const QString& action) { m_trail << action; }

    QString trail() const {
        return QStringLiteral("\nmode %1, steps: %2")
            .arg(CaptureModes::rawValue(m_mode), m_trail.join(QStringLiteral(", ")));
    }

    void press(DictationState before) {
        AppController& c = h.controller();
        if (before == DictationState::idle) {
            // Sets up the dictation this press is about to start.
            Dictation d;
            const int number = static_cast<int>(m_dictations.size());
            d.token = pick(12) == 0 ? QString() : QStringLiteral("<%1>").arg(number);
            FakeSessionScript& script = h.speech.script;
            script = {};
            if (!d.token.isEmpty()) script.finalResults.push_back({d.token + QStringLiteral(" said"), true});
            const std::uint32_t startKind = pick(10);
            script.startWaits = startKind >= 7;
            if (startKind == 0 || startKind == 9) {
                script.startError = QStringLiteral("The recognizer could not start.");
                d.startFails = true;
            }
            const std::uint32_t finishKind = pick(8);
            script.finalize = finishKind == 0   ? FakeSessionScript::Finalize::hangs
                              : finishKind == 1 ? FakeSessionScript::Finalize::fails
                                                : FakeSessionScript::Finalize::completes;
            note(QStringLiteral("press (new %1%2%3)")
                     .arg(d.token.isEmpty() ? QStringLiteral("silent") : d.token,
                          d.startFails ? QStringLiteral(", start fails") : QString(),
                          script.startWaits ? QStringLiteral(", slow start") : QString()));
            m_dictations.push_back(d);
            m_pressedAt = h.clock.now();
            c.pttPressed();
            m_current = number;
            if (c.state() == DictationState::idle && !d.startFails) {
                ADD_FAILURE() << "a press while idle with the model ready did not start"
                              << qPrintable(trail());
            }
            return;
        }
        if (m_mode == CaptureMode::toggle && before == DictationState::recording) {
            note(QStringLiteral("second tap"));
            endCurrent(Dictation::End::stopped);
        } else {
            note(QStringLiteral("press (ignored)"));
        }
        c.pttPressed();
    }

    void release(DictationState before) {
        AppController& c = h.controller();
        if (m_mode == CaptureMode::hold && before == DictationState::recording) {
            const bool long_enough = h.clock.now() - m_pressedAt >= 150ms;
            note(long_enough ? QStringLiteral("release") : QStringLiteral("release (tap)"));
            endCurrent(long_enough ? Dictation::End::stopped : Dictation::End::discarded);
        } else {
            note(QStringLiteral("release (ignored)"));
        }
        c.pttReleased();
    }

    void esc(DictationState before) {
        AppController& c = h.controller();
        // The monitor reports Esc only while a cancel is armed; otherwise the key passes through.
        if (!c.hotkeyMonitor().cancelArmed()) {
            note(QStringLiteral("esc (not armed)"));
            return;
        }
        if (before == DictationState::recording) {
            note(QStringLiteral("esc"));
            endCurrent(Dictation::End::discarded);
        } else {
            note(QStringLiteral("esc (ignored)"));
        }
        c.cancelDictation();
    }

    void configureCleanup() {
        const bool on = pick(2) == 0;
        h.defaults.setBool(AppController::cleanupEnabledKey, on);
        h.localModel.waits = pick(2) == 0;
        if (pick(3) == 0) m_failingCleanups << QStringLiteral("<%1>").arg(m_dictations.size());
        note(QStringLiteral("cleanup %1%2")
                 .arg(on ? QStringLiteral("on") : QStringLiteral("off"),
                      h.localModel.waits ? QStringLiteral(", slow") : QString()));
    }

    void endCurrent(Dictation::End end) {
        if (m_current >= 0 && m_dictations[m_current].end == Dictation::End::open)
            m_dictations[m_current].end = end;
    }

    // A recording that ended without a trigger event was ended by the watchdog (or its start failed).
    void noteUnexplainedEnd(DictationState before) {
        if (before == DictationState::recording && h.controller().state() != DictationState::recording)
            endCurrent(Dictation::End::stopped);
    }

    // Moves far ahead in watchdog-sized steps.
    void advanceCoarsely(std::chrono::milliseconds by) {
        const Clock::TimePoint end = h.clock.now() + by;
        while (h.clock.now() < end) {
            h.clock.advanceTo(std::min(end, h.clock.now() + std::chrono::milliseconds(300)));
            h.settle();
        }
    }

    bool checkInvariants() {
        AppController& c = h.controller();
        if (*h.speech.liveSessions > 1) {
            ADD_FAILURE() << "two engines exist at once" << qPrintable(trail());
            return false;
        }
        if (c.state() == DictationState::idle && c.hasEngine()) {
            ADD_FAILURE() << "an engine is left while idle" << qPrintable(trail());
            return false;
        }
        if (c.state() == DictationState::idle && h.microphone->isRunning()) {
            ADD_FAILURE() << "the microphone is left recording while idle" << qPrintable(trail());
            return false;
        }
        int allowed = 0;
        for (const Dictation& d : std::as_const(m_dictations))
            if (d.mustBeInserted()) ++allowed;
        if (m_pasted.size() > allowed) {
            ADD_FAILURE() << "more insertions than finished dictations" << qPrintable(trail());
            return false;
        }
        return true;
    }

    bool isQuiet() {
        murmurly::testing::FakeRecognizerSession* session = h.session();
        return h.controller().state() == DictationState::idle && h.localModel.waitingCount() == 0 &&
               !(session && session->startIsWaiting());
    }

    static int countContaining(const QStringList& texts, const QString& token) {
        int n = 0;
        for (const QString& text : texts)
            if (text.contains(token)) ++n;
        return n;
    }

    ControllerHarness h;
    std::mt19937 m_rng;
    CaptureMode m_mode;
    QList<Dictation> m_dictations;
    QStringList m_pasted;
    QStringList m_failingCleanups;
    QStringList m_trail;
    Clock::TimePoint m_pressedAt;
    int m_current = -1;
};

// The 2,000 sequences run in shards of their own, so that each test stays short on a busy
// machine; together they cover the same seeds as one run would.
constexpr int shardCount = 8;
constexpr int sequencesPerShard = 250;

class ControllerSequences : public ::testing::TestWithParam<int> {};

TEST_P(ControllerSequences, EveryInterleavingEndsIdleAndInsertsEachFinishedDictationExactlyOnce) {
    // The controller logs every step; thousands of sequences would drown the output.
    QLoggingCategory::setFilterRules(QStringLiteral("com.qv.murmurly.app=false"));
    constexpr std::uint32_t baseSeed = 20261121;
    constexpr int stepsPerSequence = 30;
    const int first = GetParam() * sequencesPerShard;
    int dictations = 0;
    int inserted = 0;
    for (int i = first; i < first + sequencesPerShard; ++i) {
        const std::uint32_t seed = baseSeed + static_cast<std::uint32_t>(i);
        const CaptureMode mode = i % 2 == 0 ? CaptureMode::hold : CaptureMode::toggle;
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        Sequence sequence(seed, mode);
        bool ok = true;
        for (int s = 0; s < stepsPerSequence && ok; ++s)
            ok = sequence.step();
        ASSERT_TRUE(ok);
        sequence.finishAndCheck();
        if (::testing::Test::HasFatalFailure() || ::testing::Test::HasFailure()) break;
        dictations += sequence.dictationCount();
        inserted += sequence.insertedCount();
    }
    QLoggingCategory::setFilterRules(QString());
    // The generator must actually reach both outcomes, many times.
    EXPECT_GT(dictations, sequencesPerShard);
    EXPECT_GT(inserted, sequencesPerShard / 4);
    std::printf("seeds %u to %u: %d sequences, %d dictations, %d inserted\n", baseSeed + first,
                baseSeed + first + sequencesPerShard - 1, sequencesPerShard, dictations, inserted);
}

INSTANTIATE_TEST_SUITE_P(Shards, ControllerSequences, ::testing::Range(0, shardCount));

} // namespace
