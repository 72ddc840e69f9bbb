#include "LogCapture.h"

#include <QLoggingCategory>
#include <QMutex>
#include <QStringList>

namespace murmurly::testing {

namespace {

QMutex mutex;
QList<LogCapture::Line> captured;

} // namespace

LogCapture::LogCapture(bool everything)
    : m_everything(everything) {
    {
        QMutexLocker lock(&mutex);
        captured.clear();
    }
    m_previous = qInstallMessageHandler(&LogCapture::handler);
    if (everything) QLoggingCategory::setFilterRules(QStringLiteral("*=true"));
}

LogCapture::~LogCapture() {
    qInstallMessageHandler(m_previous);
    if (m_everything) QLoggingCategory::setFilterRules(QString());
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    QMutexLocker lock(&mutex);
    captured.append({type, QString::fromUtf8(context.category ? context.category : ""), message});
}

QList<LogCapture::Line> LogCapture::lines() const {
    QMutexLocker lock(&mutex);
    return captured;
}

QStringList LogCapture::appMessages() const {
    QStringList out;
    for (const Line& line : lines())
        if (line.category == QLatin1String("com.qv.murmurly.app")) out.append(line.message);
    return out;
}

QString LogCapture::allText() const {
    QString out;
    for (const Line& line : lines())
        out += line.category + QLatin1Char(' ') + line.message + QLatin1Char('\n');
    return out;
}

} // namespace murmurly::testing
