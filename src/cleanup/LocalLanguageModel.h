#pragma once

#include <QCoro/QCoroTask>
#include <QString>

#include <optional>

namespace murmurly {

// The on-device language model as the cleanup needs it: an availability that is known without
// blocking, and one guided generation of a {"cleanedText": string} value from instructions and a
// user turn, in a fresh exchange that carries no history.
class LocalLanguageModel {
public:
    enum class Availability {
        available,
        unchecked,         // no answer yet since start or since a setting changed
        serverUnreachable, // the model server did not answer its model list
        noModel,           // it answered but offers no usable model
    };

    // The outcome of one generation: the generated "cleanedText" as it came, or why it failed.
    struct Generation {
        std::optional<QString> cleanedText;
        QString error;
    };

    virtual ~LocalLanguageModel() = default;

    // The last answer; reading it never waits.
    virtual Availability availability() const = 0;
    // Asks again now and returns the answer, which availability() holds from then on. Bounded by
    // the time limit of the question itself.
    virtual QCoro::Task<Availability> checkAvailability() = 0;
    // Absent when available; otherwise the text the Cleanup tab shows.
    virtual std::optional<QString> unavailableReason() const = 0;
    // Checks again in the background; availability() changes when the answer arrives.
    virtual void refreshAvailability() = 0;

    virtual QCoro::Task<Generation> generateCleanedText(QString instructions, QString userTurn) = 0;

    // The Cleanup tab's texts for a model server at `baseURL`.
    static std::optional<QString> reasonText(Availability availability, const QString& baseURL);
};

} // namespace murmurly
