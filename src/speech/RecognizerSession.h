#pragma once

#include "speech/AnalyzerInputStream.h"
#include "speech/ResultStream.h"

#include <QCoro/QCoroTask>

#include <memory>

namespace murmurly {

// One dictation's recognizer: fed from an input stream, it recognizes as the audio arrives and
// writes its results to results().
class RecognizerSession {
public:
    virtual ~RecognizerSession() = default;

    // Where this session's results appear; the stream ends when the session does.
    virtual std::shared_ptr<ResultStream> results() = 0;

    // Begins recognizing what `input` delivers. May suspend while the recognizer gets ready (the
    // controller's finish and cancel wait for it). Throws when the recognizer cannot start.
    virtual QCoro::Task<> start(std::shared_ptr<AnalyzerInputStream> input) = 0;

    // Recognizes everything up to the end of the input, delivers the last results and ends the
    // results stream. Throws when finalisation fails. May take long; callers bound it.
    virtual QCoro::Task<> finalizeAndFinishThroughEndOfInput() = 0;

    // Stops at once: no further results, the results stream ends, a pending finalisation returns.
    virtual void cancelAndFinishNow() = 0;
};

} // namespace murmurly
