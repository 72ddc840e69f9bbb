#pragma once

#include <QDBusConnection>
#include <QString>

namespace murmurly {

// One Murmurly per user session: the first program to own the session-bus name is the one that
// runs; later ones hand over to it and leave.
class SingleInstance {
public:
    enum class Role {
        first,   // the name is ours now
        another, // another program owns it
        alone,   // no session bus, or the bus refused: run without the check
    };

    // Claims `name` on `bus` without queueing for it. For `alone`, `error` says why.
    static Role claim(QDBusConnection bus, const QString& name, QString& error);
};

} // namespace murmurly
