#include "cleanup/LocalLanguageModel.h"

namespace murmurly {

std::optional<QString> LocalLanguageModel::reasonText(Availability availability, const QString& baseURL) {
    switch (availability) {
    case Availability::available:
        return std::nullopt;
    case Availability::unchecked:
    case Availability::serverUnreachable:
        // Until the first answer arrives, nothing has answered: the same words are true.
        return QStringLiteral("No local model server answered at ") + baseURL + QStringLiteral(".");
    case Availability::noModel:
        return QStringLiteral("The local model server lists no model.");
    }
    return QStringLiteral("The local model server lists no model.");
}

} // namespace murmurly
