#pragma once

#include <QLoggingCategory>

namespace murmurly {

// The program's one logging category; messages are written at the level each component documents.
Q_DECLARE_LOGGING_CATEGORY(lcApp)

} // namespace murmurly
