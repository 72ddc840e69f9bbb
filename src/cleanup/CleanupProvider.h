#pragma once

#include <QString>

#include <array>
#include <optional>

namespace murmurly {

// The cleanup providers, identified everywhere (preferences, usage counters, prices) by their
// raw values "onDevice", "anthropic" and "openAICompatible".
enum class CleanupProvider { onDevice, anthropic, openAICompatible };

namespace CleanupProviders {

inline constexpr std::array<CleanupProvider, 3> allCases{
    CleanupProvider::onDevice, CleanupProvider::anthropic, CleanupProvider::openAICompatible};

QString rawValue(CleanupProvider provider);
std::optional<CleanupProvider> fromRawValue(const QString& raw);

// The name shown in the interface and the history: "On-Device (local)" on Linux.
QString displayName(CleanupProvider provider);
// The keyring account of the provider's API key; none for the on-device provider.
std::optional<QString> keychainAccount(CleanupProvider provider);
QString defaultModel(CleanupProvider provider);

} // namespace CleanupProviders

} // namespace murmurly
