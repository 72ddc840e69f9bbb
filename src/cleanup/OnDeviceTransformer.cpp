#include "cleanup/OnDeviceTransformer.h"

#include "cleanup/LocalLanguageModel.h"
#include "core/Log.h"

namespace murmurly {

OnDeviceTransformer::OnDeviceTransformer(LocalLanguageModel& model)
    : m_model(model) {
}

QCoro::Task<std::optional<TransformResult>> OnDeviceTransformer::transform(QString text, QString prompt) {
    // An unavailable model is shown in the Cleanup tab, not logged for every dictation.
    if (m_model.availability() != LocalLanguageModel::Availability::available) co_return std::nullopt;

    const LocalLanguageModel::Generation generation =
        co_await m_model.generateCleanedText(std::move(prompt), std::move(text));
    if (!generation.cleanedText) {
        qCCritical(lcApp).noquote() << QStringLiteral("On-device cleanup failed: ") + generation.error;
        co_return std::nullopt;
    }
    QString cleaned = generation.cleanedText->trimmed();
    if (cleaned.isEmpty()) co_return std::nullopt;
    co_return TransformResult{std::move(cleaned), std::nullopt};
}

} // namespace murmurly
