#include "speech/TranscriptionRequest.h"

#include <QRandomGenerator>

#include <nlohmann/json.hpp>

#include <exception>

namespace murmurly {

namespace {

struct TooDeep : std::exception {
    const char* what() const noexcept override { return "too deep"; }
};

void appendField(QByteArray& out, const QByteArray& boundary, const char* name, const QByteArray& value) {
    out += "--" + boundary + "\r\n";
    out += QByteArray("Content-Disposition: form-data; name=\"") + name + "\"\r\n\r\n";
    out += value;
    out += "\r\n";
}

} // namespace

TranscriptionRequest TranscriptionRequest::make(QByteArray wav, QString model,
                                                const QString& dictationLanguage) {
    TranscriptionRequest request;
    request.wav = std::move(wav);
    request.model = std::move(model);
    request.language = languageCode(dictationLanguage);
    do {
        quint32 words[4];
        QRandomGenerator::global()->fillRange(words);
        request.boundary =
            "murmurly-" + QByteArray(reinterpret_cast<const char*>(words), sizeof words).toHex();
    } while (request.wav.contains(request.boundary));
    return request;
}

QString TranscriptionRequest::languageCode(const QString& dictationLanguage) {
    QString code = dictationLanguage.section(QLatin1Char('-'), 0, 0).section(QLatin1Char('_'), 0, 0);
    return code.toLower();
}

QByteArray TranscriptionRequest::contentType() const {
    return "multipart/form-data; boundary=" + boundary;
}

QByteArray TranscriptionRequest::body() const {
    QByteArray out;
    out.reserve(wav.size() + 1024);
    out += "--" + boundary + "\r\n";
    out += "Content-Disposition: form-data; name=\"file\"; filename=\"audio.wav\"\r\n";
    out += "Content-Type: audio/wav\r\n\r\n";
    out += wav;
    out += "\r\n";
    if (!model.isEmpty()) appendField(out, boundary, "model", model.toUtf8());
    appendField(out, boundary, "language", language.toUtf8());
    appendField(out, boundary, "response_format", "json");
    appendField(out, boundary, "temperature", "0");
    out += "--" + boundary + "--\r\n";
    return out;
}

std::optional<QString> TranscriptionRequest::parseReply(const QByteArray& body, QString& error) {
    nlohmann::json document;
    try {
        // Nesting is counted while parsing, so a hostile reply never gets built deeper than this.
        const nlohmann::json::parser_callback_t limitDepth =
            [](int depth, nlohmann::json::parse_event_t event, nlohmann::json&) {
                if ((event == nlohmann::json::parse_event_t::object_start ||
                     event == nlohmann::json::parse_event_t::array_start) &&
                    depth >= maxReplyDepth)
                    throw TooDeep{};
                return true;
            };
        document = nlohmann::json::parse(body.constBegin(), body.constEnd(), limitDepth);
    } catch (const TooDeep&) {
        error = QStringLiteral("The reply is nested more than %1 levels deep.").arg(maxReplyDepth);
        return std::nullopt;
    } catch (const nlohmann::json::parse_error& e) {
        error = QStringLiteral("The reply is not valid JSON (byte %1 of %2).").arg(e.byte).arg(body.size());
        return std::nullopt;
    } catch (const nlohmann::json::exception&) {
        error = QStringLiteral("The reply holds a JSON value out of range.");
        return std::nullopt;
    }
    if (!document.is_object()) {
        error = QStringLiteral("The reply is not a JSON object.");
        return std::nullopt;
    }
    const auto text = document.find("text");
    if (text == document.end()) {
        error = QStringLiteral("The reply has no \"text\" member.");
        return std::nullopt;
    }
    if (!text->is_string()) {
        error = QStringLiteral("The reply's \"text\" member is not a string.");
        return std::nullopt;
    }
    const std::string& value = text->get_ref<const std::string&>();
    return QString::fromUtf8(value.data(), static_cast<qsizetype>(value.size())).trimmed();
}

} // namespace murmurly
