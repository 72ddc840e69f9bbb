#pragma once

#include <QList>
#include <QString>
#include <QtGlobal>

#include <mutex>

namespace murmurly::testing {

// Records every message written to one logging category while it exists, from any thread, and
// puts the previous message handler back afterwards.
class LogCapture {
public:
    struct Entry {
        QtMsgType type;
        QString message;
    };

    explicit LogCapture(const char* category = "com.qv.murmurly.app");
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QList<Entry> entries() const;
    // Messages of one level, in order.
    QStringList messages(QtMsgType type) const;
    // Messages of any level that start with `prefix`.
    QStringList matching(const QString& prefix) const;

private:
    static void handler(QtMsgType type, const QMessageLogContext& context, const QString& message);

    QByteArray m_category;
    QtMessageHandler m_previous;
    mutable std::mutex m_mutex;
    QList<Entry> m_entries;
};

} // namespace murmurly::testing
