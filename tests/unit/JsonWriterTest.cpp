#include "core/JsonWriter.h"

#include <QString>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <random>

using namespace murmurly;

namespace {

QByteArray stringJson(const QString& text) {
    QByteArray out;
    JsonWriter::appendString(out, text);
    return out;
}

} // namespace

TEST(JsonWriter, EscapesQuotesBackslashesAndControlCharacters) {
    EXPECT_EQ(stringJson(QStringLiteral("a\"b\\c\nd\re\tf")), QByteArray(R"("a\"b\\c\nd\re\tf")"));
    EXPECT_EQ(stringJson(QString(QChar(0x01)) + QChar(0x1F)), QByteArray(R"("\u0001\u001f")"));
    EXPECT_EQ(stringJson(QString()), QByteArray(R"("")"));
}

TEST(JsonWriter, WritesUtf8ForEveryPlane) {
    EXPECT_EQ(stringJson(QString::fromUtf8("é—😀")), QByteArray("\"é—😀\""));
}

TEST(JsonWriter, LoneSurrogatesBecomeReplacementCharacters) {
    const QString lone = QString(QChar(0xD800)) + QLatin1Char('x') + QChar(0xDC00);
    EXPECT_EQ(stringJson(lone), QByteArray("\"\xEF\xBF\xBDx\xEF\xBF\xBD\""));
}

TEST(JsonWriter, StringsReadBackUnchanged) {
    const QString text = QString::fromUtf8("naïve \"quote\" \\ back\nslash \x01 😀 end");
    const auto parsed = nlohmann::json::parse(stringJson(text).toStdString());
    EXPECT_EQ(QString::fromStdString(parsed.get<std::string>()), text);
}

TEST(JsonWriter, NumbersReadBackAsTheSameDouble) {
    std::mt19937_64 rng(3);
    std::uniform_real_distribution<double> dates(-1e9, 2e9);
    for (int i = 0; i < 10000; ++i) {
        const double value =
            i % 2 ? dates(rng) : std::ldexp(static_cast<double>(rng() >> 11), -static_cast<int>(rng() % 80));
        QByteArray out;
        JsonWriter::appendNumber(out, value);
        ASSERT_EQ(nlohmann::json::parse(out.toStdString()).get<double>(), value) << out.constData();
    }
    QByteArray out;
    JsonWriter::appendNumber(out, 785000000.25);
    EXPECT_EQ(out, QByteArray("785000000.25"));
}
