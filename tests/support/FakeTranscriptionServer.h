#pragma once

#include "speech/TranscriptionServer.h"

#include <coroutine>
#include <optional>
#include <utility>

namespace murmurly::testing {

// A transcription server the test scripts: it keeps what it is sent and answers with the chosen
// transcript, or fails, or waits until released.
class FakeTranscriptionServer final : public TranscriptionServer {
public:
    struct Call {
        QByteArray wav;
        QString language;
        std::chrono::milliseconds limit{0};
    };

    QCoro::Task<ServerTranscript> transcribe(QByteArray wav, QString language,
                                             std::chrono::milliseconds limit) override {
        calls.push_back({std::move(wav), std::move(language), limit});
        if (hangs) co_await Gate{this};
        co_return answer;
    }

    // Lets a waiting call answer.
    void release() {
        if (m_waiting) std::exchange(m_waiting, nullptr).resume();
    }
    bool isWaiting() const { return static_cast<bool>(m_waiting); }

    ServerTranscript answer = ServerTranscript::transcript(QStringLiteral("the server's words"));
    bool hangs = false;
    std::vector<Call> calls;

private:
    struct Gate {
        FakeTranscriptionServer* server;
        bool await_ready() const noexcept { return false; }
        void await_suspend(std::coroutine_handle<> handle) noexcept { server->m_waiting = handle; }
        void await_resume() const noexcept {}
    };
    std::coroutine_handle<> m_waiting;
};

} // namespace murmurly::testing
