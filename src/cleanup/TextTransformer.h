#pragma once

#include "cleanup/TransformResult.h"

#include <QCoro/QCoroTask>
#include <QString>

#include <optional>

namespace murmurly {

// One cleanup provider. A transformer never throws and never reports an error to its caller:
// every failure (network, status, bad reply, refusal, unavailable model, empty answer) is an
// absent result, logged by the provider, after which the caller uses the raw transcript.
// A transformer is made for one dictation and dropped after its one call.
class TextTransformer {
public:
    virtual ~TextTransformer() = default;

    // `prompt` is the system prompt to use; transformers never substitute their own.
    virtual QCoro::Task<std::optional<TransformResult>> transform(QString text, QString prompt) = 0;
};

} // namespace murmurly
