#pragma once

#include <QString>

#include <stdexcept>

namespace murmurly {

// A capture device could not do what was asked (no audio server, no source, a refused stream).
// what() is a complete sentence for the user, in UTF-8.
class CaptureError : public std::runtime_error {
public:
    explicit CaptureError(const QString& description)
        : std::runtime_error(description.toStdString()) {}

    QString description() const { return QString::fromUtf8(what()); }
};

} // namespace murmurly
