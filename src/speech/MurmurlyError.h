#pragma once

#include <QString>

#include <exception>
#include <string>

namespace murmurly {

// The program's own errors. Each case has one fixed user-facing description; the controller shows
// it after a prefix such as "Could not start dictation: ".
class MurmurlyError : public std::exception {
public:
    enum class Code { noAudioFormat, audioConverterUnavailable, modelUnsupported };

    explicit MurmurlyError(Code code);

    Code code() const { return m_code; }
    QString description() const { return description(m_code); }
    const char* what() const noexcept override { return m_what.c_str(); }

    static QString description(Code code);
    // The description of any caught error: ours, a standard exception's what(), or "Unknown error.".
    static QString describe(const std::exception_ptr& error);

    static MurmurlyError noAudioFormat() { return MurmurlyError(Code::noAudioFormat); }
    static MurmurlyError audioConverterUnavailable() {
        return MurmurlyError(Code::audioConverterUnavailable);
    }
    static MurmurlyError modelUnsupported() { return MurmurlyError(Code::modelUnsupported); }

private:
    Code m_code;
    std::string m_what; // the description in UTF-8
};

} // namespace murmurly
