#include "LogCapture.h"

#include <QStringList>

#include <atomic>
#include <cstring>

namespace murmurly::testing {

namespace {
std::atomic<LogCapture*> current{nullptr};
}

LogCapture::LogCapture(const char* category)
    : m_category(category) {
    current.store(this);
    m_previous = qInstallMessageHandler(&LogCapture::handler);
}

LogCapture::~LogCapture() {
    qInstallMessageHandler(m_previous);
    current.store(nullptr);
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    LogCapture* capture = current.load();
    if (!capture) return;
    if (context.category && capture->m_category == context.category) {
        std::lock_guard lock(capture->m_mutex);
        capture->m_entries.append({type, message});
    }
}

QList<LogCapture::Entry> LogCapture::entries() const {
    std::lock_guard lock(m_mutex);
    return m_entries;
}

QStringList LogCapture::messages(QtMsgType type) const {
    QStringList result;
    for (const Entry& entry : entries())
        if (entry.type == type) result.append(entry.message);
    return result;
}

QStringList LogCapture::matching(const QString& prefix) const {
    QStringList result;
    for (const Entry& entry : entries())
        if (entry.message.startsWith(prefix)) result.append(entry.message);
    return result;
}

} // namespace murmurly::testing
