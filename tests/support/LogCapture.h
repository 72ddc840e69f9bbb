#pragma once

#include <QList>
#include <QString>
#include <QtGlobal>

namespace murmurly::testing {

// Records every message Qt's logging delivers while it exists, from every category, and restores
// the previous handler and filter rules afterwards. With `everything` set, every category is
// enabled at every level, Qt's own included.
class LogCapture {
public:
    struct Line {
        QtMsgType type;
        QString category;
        QString message;
    };

    explicit LogCapture(bool everything = false);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QList<Line> lines() const;
    // The messages of the application's category, in order.
    QStringList appMessages() const;
    // Every captured message and category name in one text, for searching.
    QString allText() const;

private:
    static void handler(QtMsgType type, const QMessageLogContext& context, const QString& message);

    QtMessageHandler m_previous = nullptr;
    bool m_everything = false;
};

} // namespace murmurly::testing
