#pragma once

#include "cleanup/LocalLanguageModel.h"

#include <QObject>
#include <QStringList>

#include <nlohmann/json.hpp>

#include <chrono>

class QNetworkAccessManager;

namespace murmurly {

class Defaults;

// The local language model as served by a local OpenAI-compatible model server (Ollama,
// llama.cpp's server, …). Its availability is the last answer of the server, asked again in the
// background at start, when either of its two preferences changes, when asked (the Cleanup tab),
// and after a failed generation, so reading it never waits for the network; a dictation that
// needs the model asks again and waits for that answer (checkAvailability()).
//
// Preferences: "cleanupLocalBaseURL" (default http://127.0.0.1:11434/v1; stored empty means the
// default) and "cleanupLocalModel" (default empty: the first model the server lists at
// GET {base}/models).
class LocalModelServer final : public QObject, public LocalLanguageModel {
    Q_OBJECT
    Q_PROPERTY(QString baseURL READ baseURL WRITE setBaseURL NOTIFY baseURLChanged)
    Q_PROPERTY(QString model READ model WRITE setModel NOTIFY modelChanged)

public:
    static inline const QString baseURLKey = QStringLiteral("cleanupLocalBaseURL");
    static inline const QString modelKey = QStringLiteral("cleanupLocalModel");
    static inline const QString defaultBaseURL = QStringLiteral("http://127.0.0.1:11434/v1");

    static constexpr std::chrono::milliseconds defaultListTimeout{3000};
    // Local models may need to load into memory before the first answer.
    static constexpr std::chrono::milliseconds defaultGenerationTimeout{60000};

    // Starts the first availability check at once.
    LocalModelServer(Defaults& defaults, QNetworkAccessManager& network, QObject* parent = nullptr,
                     std::chrono::milliseconds listTimeout = defaultListTimeout,
                     std::chrono::milliseconds generationTimeout = defaultGenerationTimeout);

    // As stored (possibly empty); effectiveBaseURL() is what is used.
    QString baseURL() const { return m_baseURL; }
    QString effectiveBaseURL() const;
    void setBaseURL(const QString& baseURL);
    QString model() const { return m_model; }
    void setModel(const QString& model);

    // The models the server listed at the last check.
    QStringList listedModels() const { return m_listedModels; }
    // The model a generation uses: the chosen one, or the first listed.
    QString resolvedModel() const;

    Availability availability() const override { return m_availability; }
    std::optional<QString> unavailableReason() const override;
    void refreshAvailability() override;
    QCoro::Task<Availability> checkAvailability() override;
    QCoro::Task<Generation> generateCleanedText(QString instructions, QString userTurn) override;

    // The answer schema: one string member "cleanedText" with its description.
    static const nlohmann::ordered_json& answerSchema();

signals:
    void baseURLChanged();
    void modelChanged();
    void availabilityChanged();

private:
    QCoro::Task<> refresh(quint64 round);
    void setAvailability(Availability availability);

    Defaults& m_defaults;
    QNetworkAccessManager& m_network;
    std::chrono::milliseconds m_listTimeout;
    std::chrono::milliseconds m_generationTimeout;
    QString m_baseURL;
    QString m_model;
    QStringList m_listedModels;
    Availability m_availability = Availability::unchecked;
    // Each check has a number; an answer to an older one than the latest is dropped.
    quint64 m_round = 0;
};

} // namespace murmurly
