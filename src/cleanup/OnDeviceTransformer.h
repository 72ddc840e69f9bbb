#pragma once

#include "cleanup/TextTransformer.h"

namespace murmurly {

class LocalLanguageModel;

// Cleanup with the local language model: free, no key, and never any token usage. The prompt
// becomes the instructions and the transcript the user turn of a fresh exchange.
class OnDeviceTransformer final : public TextTransformer {
public:
    explicit OnDeviceTransformer(LocalLanguageModel& model);

    QCoro::Task<std::optional<TransformResult>> transform(QString text, QString prompt) override;

private:
    LocalLanguageModel& m_model;
};

} // namespace murmurly
