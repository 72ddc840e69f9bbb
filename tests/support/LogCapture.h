#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <mutex>

namespace murmurly::testing {

// Records every message Qt's logging delivers while it exists, from every category and any
// thread, and restores the previous handler (and filter rules) afterwards. With `everything` set,
// every category is enabled at every level, Qt's own included.
class LogCapture {
public:
    struct Line {
        QtMsgType type;
        QString category;
        QString message;
    };
    using Entry = Line;

    explicit LogCapture(bool everything = false);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Everything captured, from every category.
    QList<Line> lines() const;
    // Every captured message and category name in one text, for searching.
    QString allText() const;

    // The application's category ("com.qv.murmurly.app") only, in order: all its lines, their
    // messages, those of one level, those starting with `prefix`.
    QList<Line> entries() const;
    QStringList appMessages() const;
    QStringList messages(QtMsgType type) const;
    QStringList matching(const QString& prefix) const;

private:
    static void handler(QtMsgType type, const QMessageLogContext& context, const QString& message);

    QtMessageHandler m_previous = nullptr;
    bool m_everything = false;
    mutable std::mutex m_mutex;
    QList<Line> m_lines;
};

} // namespace murmurly::testing
