#pragma once

#include "cleanup/LocalLanguageModel.h"

#include <QStringList>

#include <coroutine>
#include <functional>
#include <vector>

namespace murmurly::testing {

// A local model with a settable availability and a scripted generation; records what it was asked.
class FakeLocalLanguageModel final : public LocalLanguageModel {
public:
    Availability state = Availability::available;
    QString baseURL = QStringLiteral("http://127.0.0.1:11434/v1");
    Generation next{QStringLiteral("Cleaned."), {}};
    QStringList instructionsSeen;
    QStringList userTurnsSeen;
    int refreshes = 0;

    Availability availability() const override { return state; }
    std::optional<QString> unavailableReason() const override { return reasonText(state, baseURL); }
    void refreshAvailability() override { ++refreshes; }
    // What asking again finds; the state stays as it is when unset.
    std::optional<Availability> foundOnCheck;
    int checks = 0;
    QCoro::Task<Availability> checkAvailability() override {
        ++checks;
        if (foundOnCheck) state = *foundOnCheck;
        co_return state;
    }

    QCoro::Task<Generation> generateCleanedText(QString instructions, QString userTurn) override {
        instructionsSeen.append(instructions);
        userTurnsSeen.append(userTurn);
        const Generation result = answer ? answer(userTurn) : next;
        if (waits) co_await Gate{this};
        co_return result;
    }

    // Lets every waiting generation answer.
    void releaseWaiting() {
        std::vector<std::coroutine_handle<>> waiting = std::exchange(m_waiting, {});
        for (std::coroutine_handle<> handle : waiting)
            handle.resume();
    }
    std::size_t waitingCount() const { return m_waiting.size(); }

    // When set, generations answer from the user turn instead of `next`.
    std::function<Generation(const QString& userTurn)> answer;
    // Generations wait for releaseWaiting() before they answer.
    bool waits = false;

private:
    struct Gate {
        FakeLocalLanguageModel* model;
        bool await_ready() const noexcept { return false; }
        void await_suspend(std::coroutine_handle<> handle) { model->m_waiting.push_back(handle); }
        void await_resume() const noexcept {}
    };
    std::vector<std::coroutine_handle<>> m_waiting;
};

} // namespace murmurly::testing
