#pragma once

#include <QString>

#include <array>
#include <optional>

namespace murmurly {

// Which engine turns a dictation into text. Persisted by raw value under "speechEngine".
enum class SpeechEngineKind {
    onDevice,
    server,
};

namespace SpeechEngineKinds {

inline constexpr std::array<SpeechEngineKind, 2> allCases{SpeechEngineKind::onDevice,
                                                          SpeechEngineKind::server};

QString rawValue(SpeechEngineKind kind);
QString title(SpeechEngineKind kind);

// Lenient: exactly "server" gives the server; anything else, or nothing, the on-device engine.
SpeechEngineKind fromStored(const std::optional<QString>& stored);

} // namespace SpeechEngineKinds

} // namespace murmurly
