#pragma once

#include <QDBusConnection>
#include <QString>

#include <chrono>
#include <optional>

namespace murmurly::testing {

// The running program's control object (com.qv.Murmurly) seen from another process on the same
// session bus, through a connection of its own that closes with the object.
class MurmurlyControl {
public:
    static inline const QString service = QStringLiteral("com.qv.Murmurly");
    static inline const QString path = QStringLiteral("/com/qv/Murmurly");
    static inline const QString interface = QStringLiteral("com.qv.Murmurly");

    MurmurlyControl(const QString& busAddress, const QString& connectionName);
    ~MurmurlyControl();
    MurmurlyControl(const MurmurlyControl&) = delete;
    MurmurlyControl& operator=(const MurmurlyControl&) = delete;

    bool isConnected() const { return m_connection.isConnected(); }
    QDBusConnection& connection() { return m_connection; }

    // A property of the control object, or nothing while it does not answer.
    std::optional<QString> property(const QString& name);
    bool waitForProperty(const QString& name, const QString& value, std::chrono::milliseconds limit);
    bool waitForState(const QString& state, std::chrono::milliseconds limit = std::chrono::seconds(20));

private:
    QString m_name;
    QDBusConnection m_connection;
};

} // namespace murmurly::testing
