#include "LogCapture.h"

#include <QLoggingCategory>

#include <atomic>

namespace murmurly::testing {

namespace {

std::atomic<LogCapture*> current{nullptr};
const QLatin1String appCategory("com.qv.murmurly.app");

} // namespace

LogCapture::LogCapture(bool everything)
    : m_everything(everything) {
    current.store(this);
    m_previous = qInstallMessageHandler(&LogCapture::handler);
    if (everything) QLoggingCategory::setFilterRules(QStringLiteral("*=true"));
}

LogCapture::~LogCapture() {
    qInstallMessageHandler(m_previous);
    current.store(nullptr);
    if (m_everything) QLoggingCategory::setFilterRules(QString());
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    LogCapture* capture = current.load();
    if (!capture) return;
    std::lock_guard lock(capture->m_mutex);
    capture->m_lines.append({type, QString::fromUtf8(context.category ? context.category : ""), message});
}

QList<LogCapture::Line> LogCapture::lines() const {
    std::lock_guard lock(m_mutex);
    return m_lines;
}

QString LogCapture::allText() const {
    QString out;
    for (const Line& line : lines())
        out += line.category + QLatin1Char(' ') + line.message + QLatin1Char('\n');
    return out;
}

QList<LogCapture::Line> LogCapture::entries() const {
    QList<Line> out;
    for (const Line& line : lines())
        if (line.category == appCategory) out.append(line);
    return out;
}

QStringList LogCapture::appMessages() const {
    QStringList out;
    for (const Line& line : entries())
        out.append(line.message);
    return out;
}

QStringList LogCapture::messages(QtMsgType type) const {
    QStringList out;
    for (const Line& line : entries())
        if (line.type == type) out.append(line.message);
    return out;
}

QStringList LogCapture::matching(const QString& prefix) const {
    QStringList out;
    for (const Line& line : entries())
        if (line.message.startsWith(prefix)) out.append(line.message);
    return out;
}

} // namespace murmurly::testing
