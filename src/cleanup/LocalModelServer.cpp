#include "cleanup/LocalModelServer.h"

#include "cleanup/ChatCompletions.h"
#include "cleanup/HttpExchange.h"
#include "core/Defaults.h"
#include "core/JsonFields.h"

#include <QNetworkRequest>
#include <QPointer>

namespace murmurly {

namespace {

// The base URL less one trailing "/", followed by `path`; empty when that is not an http(s) URL.
QUrl urlFor(const QString& baseURL, const QString& path) {
    QString text = baseURL;
    if (text.endsWith(QLatin1Char('/'))) text.chop(1);
    const QUrl url(text + path, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty()) return {};
    if (url.scheme() != QLatin1String("http") && url.scheme() != QLatin1String("https")) return {};
    return url;
}

// The ids of an OpenAI-style model list {"data": [{"id": …}, …]}; absent when the reply is not one.
std::optional<QStringList> modelIds(const QByteArray& body) {
    const nlohmann::json document = JsonFields::parse(body);
    const nlohmann::json* data = JsonFields::member(document, "data");
    if (!data || !data->is_array()) return std::nullopt;
    QStringList ids;
    for (const nlohmann::json& entry : *data)
        if (const auto id = JsonFields::string(entry, "id"); id && !id->isEmpty()) ids.append(*id);
    return ids;
}

} // namespace

LocalModelServer::LocalModelServer(Defaults& defaults, QNetworkAccessManager& network, QObject* parent,
                                   std::chrono::milliseconds listTimeout,
                                   std::chrono::milliseconds generationTimeout)
    : QObject(parent)
    , m_defaults(defaults)
    , m_network(network)
    , m_listTimeout(listTimeout)
    , m_generationTimeout(generationTimeout)
    , m_baseURL(defaults.stringValue(baseURLKey).value_or(defaultBaseURL))
    , m_model(defaults.stringValue(modelKey).value_or(QString())) {
    refreshAvailability();
}

const nlohmann::ordered_json& LocalModelServer::answerSchema() {
    static const nlohmann::ordered_json schema = {
        {"type", "object"},
        {"properties",
         {{"cleanedText",
           {{"type", "string"},
            {"description", "The cleaned transcript text, with filler removed and punctuation fixed"}}}}},
        {"required", nlohmann::ordered_json::array({"cleanedText"})},
        {"additionalProperties", false},
    };
    return schema;
}

QString LocalModelServer::effectiveBaseURL() const {
    return m_baseURL.isEmpty() ? defaultBaseURL : m_baseURL;
}

void LocalModelServer::setBaseURL(const QString& baseURL) {
    if (baseURL == m_baseURL) return;
    m_baseURL = baseURL;
    m_defaults.setString(baseURLKey, baseURL);
    emit baseURLChanged();
    refreshAvailability();
}

void LocalModelServer::setModel(const QString& model) {
    if (model == m_model) return;
    m_model = model;
    m_defaults.setString(modelKey, model);
    emit modelChanged();
    refreshAvailability();
}

QString LocalModelServer::resolvedModel() const {
    if (!m_model.isEmpty()) return m_model;
    return m_listedModels.value(0);
}

std::optional<QString> LocalModelServer::unavailableReason() const {
    return reasonText(m_availability, effectiveBaseURL());
}

void LocalModelServer::setAvailability(Availability availability) {
    if (availability == m_availability) return;
    m_availability = availability;
    emit availabilityChanged();
}

void LocalModelServer::refreshAvailability() {
    const quint64 round = ++m_round;
    // A changed setting makes the previous answer meaningless until the new one arrives.
    setAvailability(Availability::unchecked);
    refresh(round);
}

QCoro::Task<LocalLanguageModel::Availability> LocalModelServer::checkAvailability() {
    // The shown state stays as it is while the question runs: only its answer changes it.
    const quint64 round = ++m_round;
    QPointer<LocalModelServer> self(this);
    co_await refresh(round);
    if (!self) co_return Availability::serverUnreachable;
    co_return m_availability;
}

QCoro::Task<> LocalModelServer::refresh(quint64 round) {
    const QUrl url = urlFor(effectiveBaseURL(), QStringLiteral("/models"));
    if (url.isEmpty()) {
        m_listedModels.clear();
        setAvailability(Availability::serverUnreachable);
        co_return;
    }
    QPointer<LocalModelServer> self(this);
    const HttpExchange::Outcome outcome =
        co_await HttpExchange::get(m_network, QNetworkRequest(url), m_listTimeout);
    if (!self || round != m_round) co_return; // gone, or a newer check is under way

    const std::optional<QStringList> ids =
        outcome.transferError || outcome.status != 200 ? std::nullopt : modelIds(outcome.body);
    if (!ids) {
        m_listedModels.clear();
        setAvailability(Availability::serverUnreachable);
        co_return;
    }
    m_listedModels = *ids;
    const bool usable = m_model.isEmpty() ? !ids->isEmpty() : ids->contains(m_model);
    setAvailability(usable ? Availability::available : Availability::noModel);
}

QCoro::Task<LocalLanguageModel::Generation> LocalModelServer::generateCleanedText(QString instructions,
                                                                                  QString userTurn) {
    QPointer<LocalModelServer> self(this);
    const auto fail = [&](QString error) {
        if (self) refreshAvailability();
        return Generation{std::nullopt, std::move(error)};
    };

    const QUrl url = urlFor(effectiveBaseURL(), QStringLiteral("/chat/completions"));
    if (url.isEmpty()) co_return fail(QStringLiteral("The local model server URL is not usable."));

    QString error;
    const std::optional<QByteArray> body =
        ProviderReply::serialise(ChatCompletions::requestBody(resolvedModel(), instructions, userTurn,
                                                              "cleaned_transcript", answerSchema()),
                                 error);
    if (!body) co_return fail(error);

    QNetworkRequest request(url);
    request.setRawHeader("Content-Type", "application/json");
    const HttpExchange::Outcome outcome =
        co_await HttpExchange::post(m_network, request, *body, m_generationTimeout);
    if (outcome.transferError) co_return fail(*outcome.transferError);
    if (outcome.status != 200)
        co_return fail(QStringLiteral("The local model server answered with status %1.").arg(outcome.status));

    const std::optional<nlohmann::json> document = ProviderReply::parseBody(outcome.body, error);
    if (!document) co_return fail(error);
    const std::optional<QString> content = ChatCompletions::firstChoiceContent(*document);
    if (!content) co_return fail(QStringLiteral("The local model server's reply holds no message content."));
    const nlohmann::json answer = JsonFields::parse(content->toUtf8());
    std::optional<QString> cleaned = JsonFields::string(answer, "cleanedText");
    if (!answer.is_object() || !cleaned)
        co_return fail(QStringLiteral("The model's answer is not an object with a string \"cleanedText\"."));
    co_return Generation{std::move(cleaned), {}};
}

} // namespace murmurly
