#include "speech/MurmurlyError.h"

namespace murmurly {

MurmurlyError::MurmurlyError(Code code)
    : m_code(code)
    , m_what(description(code).toStdString()) {
}

QString MurmurlyError::description(Code code) {
    switch (code) {
    case Code::noAudioFormat:
        return QStringLiteral("SpeechTranscriber reported no compatible audio format.");
    case Code::audioConverterUnavailable:
        return QStringLiteral("Could not create an audio converter for the mic format.");
    case Code::modelUnsupported:
        // The same words whatever language was asked for.
        return QStringLiteral("en-US is not supported by SpeechTranscriber on this system.");
    }
    return {};
}

QString MurmurlyError::describe(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const MurmurlyError& e) {
        return e.description();
    } catch (const std::exception& e) {
        return QString::fromUtf8(e.what());
    } catch (...) {
        return QStringLiteral("Unknown error.");
    }
}

} // namespace murmurly
