#pragma once

#include "cleanup/LocalLanguageModel.h"

#include <QStringList>

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

    QCoro::Task<Generation> generateCleanedText(QString instructions, QString userTurn) override {
        instructionsSeen.append(instructions);
        userTurnsSeen.append(userTurn);
        // A copy: GCC 12 moves a member named in co_return, which would empty `next` for the
        // following calls.
        co_return Generation(next);
    }
};

} // namespace murmurly::testing
