#include "SpeechCorpus.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QtEndian>

namespace murmurly::testing {

WavAudio readWav(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return {};
    const QByteArray data = file.readAll();
    if (data.size() < 12 || !data.startsWith("RIFF") || data.mid(8, 4) != "WAVE") return {};
    WavAudio audio;
    int channels = 0;
    int bits = 0;
    qsizetype pos = 12;
    while (pos + 8 <= data.size()) {
        const QByteArray id = data.mid(pos, 4);
        const quint32 size = qFromLittleEndian<quint32>(data.constData() + pos + 4);
        const qsizetype body = pos + 8;
        if (id == "fmt " && size >= 16) {
            channels = qFromLittleEndian<quint16>(data.constData() + body + 2);
            audio.sampleRate = int(qFromLittleEndian<quint32>(data.constData() + body + 4));
            bits = qFromLittleEndian<quint16>(data.constData() + body + 14);
        } else if (id == "data" && channels > 0 && bits == 16) {
            const qsizetype bytes = std::min<qsizetype>(size, data.size() - body);
            const qsizetype frames = bytes / (2 * channels);
            audio.samples.resize(std::size_t(frames));
            for (qsizetype i = 0; i < frames; ++i)
                audio.samples[std::size_t(i)] =
                    qFromLittleEndian<qint16>(data.constData() + body + i * 2 * channels);
            return audio;
        }
        pos = body + size + (size & 1);
    }
    return {};
}

QString libriVoxFolder() {
    return QStringLiteral("/usr/share/pocketsphinx/test/data/librivox");
}

QList<Utterance> libriVoxUtterances() {
    QList<Utterance> utterances;
    QFile file(libriVoxFolder() + QStringLiteral("/transcription"));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return utterances;
    // "<s> words … </s> (file-id)"
    static const QRegularExpression line(QStringLiteral("^<s>\\s*(.*?)\\s*</s>\\s*\\((\\S+)\\)\\s*$"));
    for (const QByteArray& raw : file.readAll().split('\n')) {
        const QRegularExpressionMatch match = line.match(QString::fromUtf8(raw).trimmed());
        if (!match.hasMatch()) continue;
        const QString id = match.captured(2);
        utterances.append({id, libriVoxFolder() + QLatin1Char('/') + id + QStringLiteral(".wav"),
                           match.captured(1).simplified().toLower()});
    }
    return utterances;
}

WordErrors wordErrors(const QString& reference, const QString& hypothesis) {
    const QStringList ref = reference.toLower().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    const QStringList hyp = hypothesis.toLower().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    std::vector<int> previous(std::size_t(hyp.size()) + 1), current(previous.size());
    for (std::size_t j = 0; j < previous.size(); ++j)
        previous[j] = int(j);
    for (qsizetype i = 1; i <= ref.size(); ++i) {
        current[0] = int(i);
        for (qsizetype j = 1; j <= hyp.size(); ++j) {
            const int substitution = previous[std::size_t(j - 1)] + (ref[i - 1] == hyp[j - 1] ? 0 : 1);
            current[std::size_t(j)] =
                std::min({previous[std::size_t(j)] + 1, current[std::size_t(j - 1)] + 1, substitution});
        }
        std::swap(previous, current);
    }
    return {previous[std::size_t(hyp.size())], int(ref.size())};
}

ReferenceDecode decodeWithPocketsphinxContinuous(const QString& wavPath) {
    QProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    QElapsedTimer timer;
    timer.start();
    process.start(QStringLiteral("pocketsphinx_continuous"), {QStringLiteral("-infile"), wavPath});
    if (!process.waitForFinished(120000)) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    ReferenceDecode result;
    result.seconds = double(timer.nsecsElapsed()) / 1e9;
    result.ok = process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    result.text = QString::fromUtf8(process.readAllStandardOutput()).simplified();
    return result;
}

} // namespace murmurly::testing
