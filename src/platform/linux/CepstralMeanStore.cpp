#include "platform/linux/CepstralMeanStore.h"

#include "speech/LanguageTag.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>

#include <cmath>

namespace murmurly {

namespace {

constexpr int formatVersion = 1;
// Cepstral averages are tens at most (the first, the log energy, is around 40 to 60 for 16-bit
// audio); anything far beyond is not an estimate this recognizer wrote.
constexpr double largestPlausibleValue = 1000;
// A well-formed file is a few hundred bytes.
constexpr qint64 largestPlausibleFile = 64 * 1024;

} // namespace

CepstralMeanStore::CepstralMeanStore(QString folder)
    : m_folder(std::move(folder)) {
}

QString CepstralMeanStore::defaultFolder() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) +
           QStringLiteral("/murmurly/cepstral-mean");
}

QString CepstralMeanStore::filePath(const QString& language) const {
    return m_folder + QLatin1Char('/') + bcp47Identifier(language) + QStringLiteral(".json");
}

std::optional<std::vector<float>>
CepstralMeanStore::load(const QString& language, const QString& acousticModel, std::size_t size) const {
    QFile file(filePath(language));
    if (file.size() > largestPlausibleFile || !file.open(QIODevice::ReadOnly)) return std::nullopt;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    const QJsonObject object = document.object();
    if (object.value(QStringLiteral("format")).toInt() != formatVersion ||
        object.value(QStringLiteral("acousticModel")).toString() != acousticModel)
        return std::nullopt;
    const QJsonArray values = object.value(QStringLiteral("mean")).toArray();
    if (std::size_t(values.size()) != size) return std::nullopt;
    std::vector<float> mean;
    mean.reserve(size);
    for (const QJsonValue& value : values) {
        if (!value.isDouble()) return std::nullopt;
        const double number = value.toDouble();
        if (!std::isfinite(number) || std::abs(number) > largestPlausibleValue) return std::nullopt;
        mean.push_back(float(number));
    }
    return mean;
}

bool CepstralMeanStore::save(const QString& language, const QString& acousticModel,
                             const std::vector<float>& mean) const {
    QJsonArray values;
    for (float value : mean) {
        if (!std::isfinite(value)) return false;
        values.append(double(value));
    }
    const QJsonObject object{{QStringLiteral("format"), formatVersion},
                             {QStringLiteral("acousticModel"), acousticModel},
                             {QStringLiteral("mean"), values}};
    if (!QDir().mkpath(m_folder)) return false;
    QSaveFile file(filePath(language));
    if (!file.open(QIODevice::WriteOnly)) return false;
    file.write(QJsonDocument(object).toJson(QJsonDocument::Compact));
    return file.commit();
}

} // namespace murmurly
