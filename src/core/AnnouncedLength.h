#pragma once

#include <QByteArray>
#include <QVariant>

namespace murmurly {

// Whether a reply body ended before the length its Content-Length header announced. Qt can report
// a reply whose connection was reset part-way through the body as finished without an error, with
// only the part that arrived; the announced length is what tells such a body from a whole one.
// A compressed body is announced by its compressed length, which says nothing about the length
// Qt hands on after decoding it, so only an uncompressed body is compared.
inline bool endsShortOfAnnouncedLength(const QVariant& announcedLength, const QByteArray& contentEncoding,
                                       qint64 received) {
    const QByteArray encoding = contentEncoding.trimmed().toLower();
    if (!encoding.isEmpty() && encoding != "identity") return false;
    bool known = false;
    const qint64 announced = announcedLength.toLongLong(&known);
    return announcedLength.isValid() && known && received < announced;
}

} // namespace murmurly
