#include "ProgramCopy.h"

#include <QFile>

namespace murmurly::testing {

ProgramCopy::ProgramCopy() {
    m_path = m_dir.filePath(QStringLiteral("murmurly"));
    const auto open = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup |
                      QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther;
    m_ready = m_dir.isValid() && QFile::setPermissions(m_dir.path(), open) &&
              QFile::copy(QStringLiteral(MURMURLY_EXECUTABLE), m_path) && QFile::setPermissions(m_path, open);
}

} // namespace murmurly::testing
