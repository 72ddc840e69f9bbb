#pragma once

#include <QByteArray>
#include <QList>

#include <optional>

namespace murmurly::testing {

// A multipart/form-data body taken apart the way a server does, strictly: every part must have
// its header block and a Content-Disposition naming it, and the body must end with the closing
// delimiter. Used by the tests to read what was posted.
struct MultipartForm {
    struct Part {
        QByteArray name;
        QByteArray filename; // empty when the part is a plain field
        QByteArray contentType;
        QByteArray data;
    };

    QList<Part> parts;

    const Part* part(const QByteArray& name) const {
        for (const Part& p : parts)
            if (p.name == name) return &p;
        return nullptr;
    }
    QList<QByteArray> names() const {
        QList<QByteArray> out;
        for (const Part& p : parts)
            out.append(p.name);
        return out;
    }

    // The boundary of a "multipart/form-data; boundary=…" content type, or nothing.
    static std::optional<QByteArray> boundaryOf(const QByteArray& contentType) {
        const QByteArray prefix = "multipart/form-data; boundary=";
        if (!contentType.startsWith(prefix)) return std::nullopt;
        QByteArray boundary = contentType.mid(prefix.size());
        if (boundary.isEmpty()) return std::nullopt;
        return boundary;
    }

    static std::optional<MultipartForm> parse(const QByteArray& body, const QByteArray& boundary) {
        const QByteArray delimiter = "--" + boundary;
        if (!body.startsWith(delimiter + "\r\n")) return std::nullopt;
        MultipartForm form;
        qsizetype at = delimiter.size() + 2;
        for (;;) {
            const qsizetype headEnd = body.indexOf("\r\n\r\n", at);
            if (headEnd < 0) return std::nullopt;
            Part part;
            for (const QByteArray& rawLine : body.mid(at, headEnd - at).split('\n')) {
                const QByteArray line = rawLine.trimmed();
                if (line.startsWith("Content-Disposition: form-data; ")) {
                    for (const QByteArray& rawParam : line.mid(32).split(';')) {
                        const QByteArray param = rawParam.trimmed();
                        if (param.startsWith("name=\"") && param.endsWith('"'))
                            part.name = param.mid(6, param.size() - 7);
                        else if (param.startsWith("filename=\"") && param.endsWith('"'))
                            part.filename = param.mid(10, param.size() - 11);
                    }
                } else if (line.startsWith("Content-Type: ")) {
                    part.contentType = line.mid(14);
                } else {
                    return std::nullopt;
                }
            }
            if (part.name.isEmpty()) return std::nullopt;
            const qsizetype dataStart = headEnd + 4;
            const qsizetype next = body.indexOf("\r\n" + delimiter, dataStart);
            if (next < 0) return std::nullopt;
            part.data = body.mid(dataStart, next - dataStart);
            form.parts.append(part);
            at = next + 2 + delimiter.size();
            if (body.mid(at) == "--\r\n") return form;
            if (body.mid(at, 2) != "\r\n") return std::nullopt;
            at += 2;
        }
    }
};

} // namespace murmurly::testing
