#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QTemporaryDir>

namespace murmurly::testing {

// A private home for one test: HOME and the XDG folders point into a temporary directory that
// is removed afterwards, and the previous environment is restored. Nothing touches the user's
// own files.
class TemporaryHome {
public:
    TemporaryHome();
    ~TemporaryHome();
    TemporaryHome(const TemporaryHome&) = delete;
    TemporaryHome& operator=(const TemporaryHome&) = delete;

    QString path() const { return m_dir.path(); }
    QString configHome() const { return m_dir.path() + QStringLiteral("/config"); }
    QString dataHome() const { return m_dir.path() + QStringLiteral("/data"); }
    QString filePath(const QString& relative) const { return m_dir.path() + QLatin1Char('/') + relative; }

private:
    void set(const char* name, const QString& value);

    QTemporaryDir m_dir;
    QList<QPair<QByteArray, QByteArray>> m_saved; // name, previous value
    QList<QByteArray> m_unset;
};

} // namespace murmurly::testing
