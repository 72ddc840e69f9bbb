#include "cleanup/CleanupProvider.h"

#include <QtGlobal>

namespace murmurly::CleanupProviders {

QString rawValue(CleanupProvider provider) {
    switch (provider) {
    case CleanupProvider::onDevice:
        return QStringLiteral("onDevice");
    case CleanupProvider::anthropic:
        return QStringLiteral("anthropic");
    case CleanupProvider::openAICompatible:
        return QStringLiteral("openAICompatible");
    }
    return QStringLiteral("onDevice");
}

std::optional<CleanupProvider> fromRawValue(const QString& raw) {
    for (const CleanupProvider provider : allCases)
        if (rawValue(provider) == raw) return provider;
    return std::nullopt;
}

QString displayName(CleanupProvider provider) {
    switch (provider) {
    case CleanupProvider::onDevice:
#ifdef Q_OS_MACOS
        return QStringLiteral("On-Device (Apple)");
#else
        return QStringLiteral("On-Device (local)");
#endif
    case CleanupProvider::anthropic:
        return QStringLiteral("Claude (Anthropic)");
    case CleanupProvider::openAICompatible:
        return QStringLiteral("OpenAI-compatible");
    }
    return {};
}

std::optional<QString> keychainAccount(CleanupProvider provider) {
    switch (provider) {
    case CleanupProvider::onDevice:
        return std::nullopt;
    case CleanupProvider::anthropic:
        return QStringLiteral("anthropic-api-key");
    case CleanupProvider::openAICompatible:
        return QStringLiteral("openai-compatible-api-key");
    }
    return std::nullopt;
}

QString defaultModel(CleanupProvider provider) {
    switch (provider) {
    case CleanupProvider::onDevice:
        return {};
    case CleanupProvider::anthropic:
        return QStringLiteral("claude-haiku-4-5");
    case CleanupProvider::openAICompatible:
        return QStringLiteral("gpt-4o-mini");
    }
    return {};
}

} // namespace murmurly::CleanupProviders
