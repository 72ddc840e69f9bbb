#pragma once

#include "speech/SpeechEngineKind.h"

#include <QCoro/QCoroTask>
#include <QString>

#include <chrono>
#include <cstdio>
#include <optional>

namespace murmurly {

// `murmurly transcribe FILE`: a WAV file through the recognizer, the user's replacements and,
// when asked, the configured cleanup, printed on standard output. Needs no display and no audio
// server. Problems are written to standard error as plain sentences.
class TranscribeCommand {
public:
    struct Options {
        QString file;
        std::optional<QString> language; // else the "dictationLocale" preference, else en-US
        bool cleanup = false;
        std::optional<SpeechEngineKind> engine; // else the "speechEngine" preference
    };

    static constexpr int exitSuccess = 0;
    // The file could not be read, no model serves the language, or recognition failed.
    static constexpr int exitFailure = 2;
    // How long to wait for the local model server's first answer before cleaning up.
    static constexpr int localModelWaitMilliseconds = 5000;
    // How long the program stays after printing, for the recognizer's time limits to end.
    static constexpr std::chrono::milliseconds settleTime{300};

    // Never throws; the answer is the exit status.
    static QCoro::Task<int> run(Options options, std::FILE* out = stdout, std::FILE* err = stderr);
};

} // namespace murmurly
