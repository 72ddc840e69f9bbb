#include "core/ModelStatus.h"

namespace murmurly {

QString ModelStatus::menuLabel() const {
    switch (kind) {
    case Kind::checking:
        return QStringLiteral("Model: checking\u2026");
    case Kind::downloading:
        return QStringLiteral("Model: downloading\u2026");
    case Kind::ready:
        return QStringLiteral("Model: ready");
    case Kind::failed:
        return QStringLiteral("Model: failed \u2014 ") + message;
    }
    return {};
}

} // namespace murmurly
