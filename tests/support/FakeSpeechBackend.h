#pragma once

#include "speech/SpeechBackend.h"

#include <QString>
#include <QStringList>

#include <coroutine>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

namespace murmurly::testing {

// How a fake session behaves; the test sets it on the backend before the engine is made.
struct FakeSessionScript {
    enum class Finalize { completes, hangs, fails };

    // Results written when finalisation runs, before it completes.
    std::vector<TranscriptionResult> finalResults;
    Finalize finalize = Finalize::completes;
    // Whether the results stream ends when finalisation completes / when cancelled. A session
    // that ends neither leaves its results reader waiting forever.
    bool endResultsOnFinalize = true;
    bool endResultsOnCancel = true;
    std::optional<QString> startError;
    // A start that fails because the model could not be loaded.
    std::optional<QString> modelLoadError;
    // A start that waits until the test calls releaseStart() on the session.
    bool startWaits = false;
};

// A recognizer session the test drives: results are written by the test (or by the script at
// finalisation), audio is only collected.
class FakeRecognizerSession final : public RecognizerSession {
public:
    explicit FakeRecognizerSession(FakeSessionScript script, std::shared_ptr<int> live = {})
        : m_script(std::move(script))
        , m_results(ResultStream::create())
        , m_live(std::move(live)) {
        if (m_live) ++*m_live;
    }
    ~FakeRecognizerSession() override {
        m_destroyed = true;
        releaseFinalizer();
        releaseStart();
        if (m_live) --*m_live;
    }

    std::shared_ptr<ResultStream> results() override { return m_results; }

    QCoro::Task<> start(std::shared_ptr<AnalyzerInputStream> input) override {
        m_input = std::move(input);
        if (m_script.startWaits) {
            co_await StartGate{this};
            if (m_destroyed) co_return;
        }
        if (m_script.startError) throw std::runtime_error(m_script.startError->toStdString());
        if (m_script.modelLoadError) throw ModelLoadError(*m_script.modelLoadError);
        m_started = true;
    }

    // Lets a waiting start() go on.
    void releaseStart() {
        if (m_waitingStart) std::exchange(m_waitingStart, nullptr).resume();
    }
    bool startIsWaiting() const { return static_cast<bool>(m_waitingStart); }

    QCoro::Task<> finalizeAndFinishThroughEndOfInput() override {
        ++m_finalizeCalls;
        for (const TranscriptionResult& result : m_script.finalResults)
            m_results->yield(result);
        switch (m_script.finalize) {
        case FakeSessionScript::Finalize::completes:
            break;
        case FakeSessionScript::Finalize::fails:
            throw std::runtime_error("the recognizer could not finalise");
        case FakeSessionScript::Finalize::hangs:
            co_await Hang{this};
            co_return;
        }
        if (m_script.endResultsOnFinalize) m_results->finish();
    }

    void cancelAndFinishNow() override {
        ++m_cancelCalls;
        if (m_script.endResultsOnCancel) m_results->finish();
        releaseFinalizer();
    }

    bool started() const { return m_started; }
    int finalizeCalls() const { return m_finalizeCalls; }
    int cancelCalls() const { return m_cancelCalls; }
    const std::shared_ptr<AnalyzerInputStream>& input() const { return m_input; }

private:
    struct StartGate {
        FakeRecognizerSession* session;
        bool await_ready() const noexcept { return false; }
        void await_suspend(std::coroutine_handle<> handle) noexcept { session->m_waitingStart = handle; }
        void await_resume() const noexcept {}
    };

    struct Hang {
        FakeRecognizerSession* session;
        bool await_ready() const noexcept { return false; }
        void await_suspend(std::coroutine_handle<> handle) noexcept { session->m_hungFinalizer = handle; }
        void await_resume() const noexcept {}
    };

    // A finalisation that hangs ends only when the session is cancelled or destroyed.
    void releaseFinalizer() {
        if (m_hungFinalizer) std::exchange(m_hungFinalizer, nullptr).resume();
    }

    FakeSessionScript m_script;
    std::shared_ptr<ResultStream> m_results;
    std::shared_ptr<AnalyzerInputStream> m_input;
    std::coroutine_handle<> m_hungFinalizer;
    std::coroutine_handle<> m_waitingStart;
    std::shared_ptr<int> m_live;
    bool m_destroyed = false;
    bool m_started = false;
    int m_finalizeCalls = 0;
    int m_cancelCalls = 0;
};

// Waits for the test to let the installs go on, or not at all.
struct InstallGate {
    bool waits = false;
    std::optional<QString> failure; // installs fail with this description while set
    std::vector<std::coroutine_handle<>> waiting;

    void release() {
        std::vector<std::coroutine_handle<>> handles = std::exchange(waiting, {});
        for (std::coroutine_handle<> handle : handles)
            handle.resume();
    }
};

class FakeInstallRequest final : public ModelInstallRequest {
public:
    FakeInstallRequest(int& downloads, InstallGate& gate, QStringList& installed, QString language)
        : m_downloads(downloads)
        , m_gate(gate)
        , m_installed(installed)
        , m_language(std::move(language)) {}
    QCoro::Task<> downloadAndInstall() override {
        ++m_downloads;
        InstallGate& gate = m_gate;
        QStringList& installed = m_installed;
        const QString language = m_language;
        if (gate.waits) co_await Wait{gate};
        if (gate.failure) throw std::runtime_error(gate.failure->toStdString());
        installed.append(language);
    }

private:
    struct Wait {
        InstallGate& gate;
        bool await_ready() const noexcept { return false; }
        void await_suspend(std::coroutine_handle<> handle) { gate.waiting.push_back(handle); }
        void await_resume() const noexcept {}
    };

    int& m_downloads;
    InstallGate& m_gate;
    QStringList& m_installed;
    QString m_language;
};

// Languages, installs and sessions as the test sets them up.
class FakeSpeechBackend final : public SpeechBackend {
public:
    QStringList installedLanguages() override { return installed; }
    QStringList supportedLanguages() override { return supported; }
    std::unique_ptr<ModelInstallRequest> installRequest(const QString& language) override {
        requestedInstalls.append(language);
        if (installed.contains(language)) return nullptr;
        return std::make_unique<FakeInstallRequest>(downloads, installGate, installed, language);
    }
    std::optional<AudioFormat> bestAudioFormat(const QString&) override { return format; }
    std::unique_ptr<RecognizerSession> makeSession(const QString& language) override {
        sessionLanguages.append(language);
        auto session = std::make_unique<FakeRecognizerSession>(script, liveSessions);
        lastSession = session.get();
        return session;
    }

    QStringList installed{QStringLiteral("en-US")};
    QStringList supported{QStringLiteral("en-US")};
    std::optional<AudioFormat> format = AudioFormat::int16(16000, 1);
    FakeSessionScript script;

    InstallGate installGate;
    int downloads = 0;
    QStringList requestedInstalls;
    QStringList sessionLanguages;
    FakeRecognizerSession* lastSession = nullptr; // owned by the engine that asked for it
    // Sessions that exist right now; one per engine.
    std::shared_ptr<int> liveSessions = std::make_shared<int>(0);
};

} // namespace murmurly::testing
