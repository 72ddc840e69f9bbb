#pragma once

#include <QString>
#include <QTemporaryDir>

namespace murmurly::testing {

// A copy of the built program that any user may run, such as the compositor's unprivileged user
// running it from a key binding: the build folder may sit where only root can reach it. Removed
// with the object.
class ProgramCopy {
public:
    ProgramCopy();

    bool isReady() const { return m_ready; }
    QString path() const { return m_path; }

private:
    QTemporaryDir m_dir;
    QString m_path;
    bool m_ready = false;
};

} // namespace murmurly::testing
