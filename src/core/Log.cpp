#include "core/Log.h"

namespace murmurly {

Q_LOGGING_CATEGORY(lcApp, "com.qv.murmurly.app")

} // namespace murmurly
