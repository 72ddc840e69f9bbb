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

bool writeWav(const QString& path, const std::vector<std::int16_t>& samples, int sampleRate) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) return false;
    const quint32 dataBytes = quint32(samples.size() * 2);
    QByteArray header;
    auto u32 = [&](quint32 v) {
        char b[4];
        qToLittleEndian(v, b);
        header.append(b, 4);
    };
    auto u16 = [&](quint16 v) {
        char b[2];
        qToLittleEndian(v, b);
        header.append(b, 2);
    };
    header.append("RIFF");
    u32(36 + dataBytes);
    header.append("WAVEfmt ");
    u32(16);
    u16(1); // PCM
    u16(1); // mono
    u32(quint32(sampleRate));
    u32(quint32(sampleRate * 2));
    u16(2);
    u16(16);
    header.append("data");
    u32(dataBytes);
    QByteArray body(qsizetype(dataBytes), Qt::Uninitialized);
    for (std::size_t i = 0; i < samples.size(); ++i)
        qToLittleEndian(samples[i], body.data() + 2 * i);
    return file.write(header) == header.size() && file.write(body) == body.size();
}

std::size_t endOfSpeech(const WavAudio& audio, double fraction) {
    const std::size_t window = std::size_t(std::max(1, audio.sampleRate / 100));
    std::vector<double> energy;
    for (std::size_t start = 0; start < audio.samples.size(); start += window) {
        double sum = 0;
        const std::size_t end = std::min(audio.samples.size(), start + window);
        for (std::size_t i = start; i < end; ++i)
            sum += double(audio.samples[i]) * audio.samples[i];
        energy.push_back(sum / double(end - start));
    }
    double loudest = 0;
    for (double e : energy)
        loudest = std::max(loudest, e);
    // Loudness compared as amplitude: energy scales with its square.
    const double threshold = loudest * fraction * fraction;
    for (std::size_t w = energy.size(); w-- > 0;)
        if (energy[w] >= threshold) return std::min(audio.samples.size(), (w + 1) * window);
    return 0;
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
