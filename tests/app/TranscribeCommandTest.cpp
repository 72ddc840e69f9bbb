// `murmurly transcribe` as a user runs it: the built program in a process of its own, without a
// display, a session bus or an audio server, in a private home.
#include "MemoryDefaults.h"
#include "RunningMurmurly.h"
#include "SpeechCorpus.h"
#include "SpeechTestSupport.h"
#include "StandInHttpServer.h"
#include "StoredReplacement.h"
#include "TemporaryHome.h"
#include "WaitUntil.h"
#include "core/SystemClock.h"
#include "platform/linux/IniDefaults.h"
#include "platform/linux/PocketsphinxBackend.h"
#include "speech/AudioConverter.h"
#include "speech/FileTranscriber.h"
#include "speech/TranscriptionEngine.h"
#include "speech/WavFile.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtEndian>

#include <gtest/gtest.h>

#include <cstdio>

using namespace murmurly;
using namespace murmurly::testing;

namespace {

// Runs the program with `arguments` on nothing of a desktop: no display, no session bus, no audio
// server. The event loop is served while it runs (the stand-in servers answer from it).
ProgramRun runWithoutDesktop(const QStringList& arguments,
                             std::chrono::milliseconds limit = std::chrono::seconds(120)) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("DISPLAY"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                       QStringLiteral("unix:path=/nonexistent/bus"));
    environment.insert(QStringLiteral("PULSE_SERVER"), QStringLiteral("unix:/nonexistent/pulse"));
    return runMurmurly(arguments, environment, limit);
}

// What `murmurly transcribe` does to the file, done in this process: read, adapted to, fed in
// buffers, by a recognizer that has heard nothing before (like a fresh program).
QString inProcessTranscript(const QString& wavPath) {
    QString error;
    const std::optional<WavFile> wav = WavFile::read(wavPath, error);
    if (!wav) return QStringLiteral("<unreadable: %1>").arg(error);
    PocketsphinxBackend backend({QStringLiteral("/usr/share/pocketsphinx/model")});
    SystemClock clock;
    FileTranscriber transcriber(backend, clock);
    const QString text = runTask(transcriber.transcribe(wav->audio(), QStringLiteral("en-US")));
    runEventLoopFor(300);
    return text;
}

// The files' samples fed one after another to one recognizer, as dictations reach the running
// program: each is heard by a recognizer that has learned from the ones before.
WordErrors inOneRunErrors(const QList<Utterance>& utterances) {
    PocketsphinxBackend backend({QStringLiteral("/usr/share/pocketsphinx/model")});
    SystemClock clock;
    WordErrors errors;
    for (const Utterance& utterance : utterances) {
        TranscriptionEngine engine(backend, clock, QStringLiteral("en-US"));
        std::shared_ptr<AnalyzerInputStream> input = runTask(engine.start());
        feed(*input, readWav(utterance.wavPath).samples);
        waitUntilTaken(*input);
        errors += wordErrors(utterance.reference, runTask(engine.finish()));
        runEventLoopFor(300);
    }
    return errors;
}

QString sentence(const char* id) {
    return libriVoxFolder() + QLatin1Char('/') + QLatin1String(id) + QStringLiteral(".wav");
}

// Writes interleaved float samples as a 32-bit float WAV file.
bool writeFloatWav(const QString& path, const std::vector<float>& samples, int rate, int channels) {
    QByteArray bytes("RIFF");
    auto u32 = [&](quint32 v) {
        char b[4];
        qToLittleEndian(v, b);
        bytes.append(b, 4);
    };
    auto u16 = [&](quint16 v) {
        char b[2];
        qToLittleEndian(v, b);
        bytes.append(b, 2);
    };
    const quint32 dataBytes = quint32(samples.size() * 4);
    u32(36 + dataBytes);
    bytes += "WAVEfmt ";
    u32(16);
    u16(3);
    u16(quint16(channels));
    u32(quint32(rate));
    u32(quint32(rate * channels * 4));
    u16(quint16(channels * 4));
    u16(32);
    bytes += "data";
    u32(dataBytes);
    for (float s : samples) {
        char b[4];
        qToLittleEndian(s, b);
        bytes.append(b, 4);
    }
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

void writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

} // namespace

TEST(TranscribeCommand, LibriVoxFilesGiveExactlyTheRecognizersOwnTranscripts) {
    TemporaryHome home;
    const QList<Utterance> utterances = libriVoxUtterances();
    ASSERT_EQ(utterances.size(), 5);
    WordErrors ours;
    WordErrors continuousErrors;
    for (const Utterance& utterance : utterances) {
        const ProgramRun run = runWithoutDesktop({QStringLiteral("transcribe"), utterance.wavPath});
        ASSERT_TRUE(run.finished);
        EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
        EXPECT_EQ(run.err, QString());
        ASSERT_TRUE(run.out.endsWith(QLatin1Char('\n')));
        const QString text = run.out.chopped(1);
        EXPECT_FALSE(text.contains(QLatin1Char('\n')));
        const QString expected = inProcessTranscript(utterance.wavPath);
        EXPECT_EQ(text.toStdString(), expected.toStdString()) << utterance.id.toStdString();
        EXPECT_FALSE(text.isEmpty());

        const ReferenceDecode continuous = decodeWithPocketsphinxContinuous(utterance.wavPath);
        ASSERT_TRUE(continuous.ok);
        ours += wordErrors(utterance.reference, text);
        continuousErrors += wordErrors(utterance.reference, continuous.text);
        std::printf("%s\n  murmurly transcribe: %s\n  in-process:          %s\n", qPrintable(utterance.id),
                    qPrintable(text), qPrintable(expected));
    }
    const WordErrors oneRun = inOneRunErrors(utterances);
    std::printf("WER murmurly transcribe %.1f%% (%d/%d), the same files in one run %.1f%% (%d/%d), "
                "pocketsphinx_continuous -infile %.1f%% (%d/%d)\n",
                ours.rate(), ours.errors, ours.referenceWords, oneRun.rate(), oneRun.errors,
                oneRun.referenceWords, continuousErrors.rate(), continuousErrors.errors,
                continuousErrors.referenceWords);
    EXPECT_LE(ours.rate(), continuousErrors.rate() + 3.0);
    // Each file alone is recognized as well as when the recognizer has heard others before it.
    EXPECT_LE(ours.rate(), oneRun.rate() + 1.0);
}

TEST(TranscribeCommand, ALongSilenceBeforeTheSpeechDoesNotMakeTheTranscriptWorse) {
    TemporaryHome home;
    QTemporaryDir dir;
    WordErrors plain;
    WordErrors afterSilence;
    for (const Utterance& utterance : libriVoxUtterances()) {
        const WavAudio speech = readWav(utterance.wavPath);
        ASSERT_EQ(speech.sampleRate, 16000);
        // Eight seconds of a quiet room (a faint hiss of a few steps) before the same speech.
        std::vector<std::int16_t> samples(16000 * 8);
        std::uint32_t seed = 2024;
        for (std::int16_t& sample : samples) {
            seed = seed * 1664525u + 1013904223u;
            sample = std::int16_t(int(seed >> 29) - 4);
        }
        samples.insert(samples.end(), speech.samples.begin(), speech.samples.end());
        const QString path = dir.filePath(utterance.id + QStringLiteral("-after-silence.wav"));
        ASSERT_TRUE(writeWav(path, samples, 16000));

        const ProgramRun withSilence = runWithoutDesktop({QStringLiteral("transcribe"), path});
        const ProgramRun without = runWithoutDesktop({QStringLiteral("transcribe"), utterance.wavPath});
        ASSERT_TRUE(withSilence.finished && without.finished);
        EXPECT_EQ(withSilence.exitCode, 0) << withSilence.err.toStdString();
        afterSilence += wordErrors(utterance.reference, withSilence.out.trimmed());
        plain += wordErrors(utterance.reference, without.out.trimmed());
        std::printf("%s\n  alone:          %s\n  after silence:  %s\n", qPrintable(utterance.id),
                    qPrintable(without.out.trimmed()), qPrintable(withSilence.out.trimmed()));
    }
    ASSERT_GT(plain.referenceWords, 0);
    std::printf("WER alone %.1f%% (%d/%d), after 8 s of silence %.1f%% (%d/%d)\n", plain.rate(), plain.errors,
                plain.referenceWords, afterSilence.rate(), afterSilence.errors, afterSilence.referenceWords);
    EXPECT_LE(afterSilence.errors, plain.errors);
}

TEST(TranscribeCommand, AStereoFloatCopyAt44100HzIsRecognizedAsWellAsTheOriginal) {
    TemporaryHome home;
    const Utterance utterance = libriVoxUtterances().value(0);
    ASSERT_FALSE(utterance.wavPath.isEmpty());
    const WavAudio original = readWav(utterance.wavPath);
    ASSERT_EQ(original.sampleRate, 16000);

    // 16 kHz mono 16-bit → 44.1 kHz stereo float, the kind of file a desktop recorder writes.
    AudioBuffer input =
        *AudioBuffer::allocate(AudioFormat::int16(16000, 1), std::int64_t(original.samples.size()));
    input.setFrameLength(std::int64_t(original.samples.size()));
    std::copy(original.samples.begin(), original.samples.end(), input.int16Samples());
    const std::unique_ptr<AudioConverter> converter =
        AudioConverter::create(AudioFormat::int16(16000, 1), AudioFormat::float32(44100, 2));
    ASSERT_TRUE(converter);
    AudioBuffer output = *AudioBuffer::allocate(
        AudioFormat::float32(44100, 2), std::int64_t(double(original.samples.size()) * 44100 / 16000) + 64);
    ASSERT_NE(converter->convert(input, output).status, AudioConverter::Status::error);
    std::vector<float> samples(output.floatSamples(), output.floatSamples() + output.frameLength() * 2);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("stereo-44100-float.wav"));
    ASSERT_TRUE(writeFloatWav(path, samples, 44100, 2));

    const ProgramRun copy = runWithoutDesktop({QStringLiteral("transcribe"), path});
    const ProgramRun first = runWithoutDesktop({QStringLiteral("transcribe"), utterance.wavPath});
    ASSERT_TRUE(copy.finished && first.finished);
    EXPECT_EQ(copy.exitCode, 0) << copy.err.toStdString();
    const QString text = copy.out.trimmed();
    std::printf("original: %s\ncopy:     %s\n", qPrintable(first.out.trimmed()), qPrintable(text));
    EXPECT_FALSE(text.isEmpty());
    EXPECT_LE(wordErrors(utterance.reference, text).errors,
              wordErrors(utterance.reference, first.out.trimmed()).errors + 2);
}

TEST(TranscribeCommand, SilenceAndAnEmptyRecordingPrintAnEmptyLine) {
    TemporaryHome home;
    QTemporaryDir dir;
    const QString silence = dir.filePath(QStringLiteral("silence.wav"));
    ASSERT_TRUE(writeWav(silence, std::vector<std::int16_t>(16000 * 2, 0), 16000));
    const QString empty = dir.filePath(QStringLiteral("empty.wav"));
    ASSERT_TRUE(writeWav(empty, {}, 16000));
    for (const QString& path : {silence, empty}) {
        const ProgramRun run = runWithoutDesktop({QStringLiteral("transcribe"), path});
        ASSERT_TRUE(run.finished);
        EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
        EXPECT_EQ(run.out, QStringLiteral("\n"));
        EXPECT_EQ(run.err, QString());
    }
}

TEST(TranscribeCommand, AFileThatCannotBeReadIsExitStatus2WithAMessage) {
    TemporaryHome home;
    QTemporaryDir dir;
    const QString missing = dir.filePath(QStringLiteral("missing.wav"));
    ProgramRun run = runWithoutDesktop({QStringLiteral("transcribe"), missing});
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, QString());
    EXPECT_EQ(run.err, QStringLiteral("murmurly: Cannot read \"%1\": there is no such file.\n").arg(missing));

    const QString text = dir.filePath(QStringLiteral("notes.wav"));
    writeFile(text, "shopping list: milk, bread\n");
    run = runWithoutDesktop({QStringLiteral("transcribe"), text});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, QString());
    EXPECT_EQ(run.err, QStringLiteral("murmurly: Cannot read \"%1\": it is not a WAV file (it does not begin "
                                      "with a RIFF/WAVE header).\n")
                           .arg(text));

    QFile original(sentence("sense_and_sensibility_01_austen_64kb-0880"));
    ASSERT_TRUE(original.open(QIODevice::ReadOnly));
    const QString cut = dir.filePath(QStringLiteral("cut.wav"));
    writeFile(cut, original.readAll().left(20000));
    run = runWithoutDesktop({QStringLiteral("transcribe"), cut});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, QString());
    EXPECT_TRUE(run.err.contains(QStringLiteral("it is cut short: its audio data chunk declares")))
        << run.err.toStdString();
}

TEST(TranscribeCommand, ALanguageWithoutAModelIsExitStatus2WithAMessage) {
    TemporaryHome home;
    const QString file = sentence("sense_and_sensibility_01_austen_64kb-0880");
    ProgramRun run = runWithoutDesktop(
        {QStringLiteral("transcribe"), file, QStringLiteral("--language"), QStringLiteral("xx-XX")});
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, QString());
    EXPECT_EQ(run.err,
              QStringLiteral("murmurly: No speech model is installed for \"xx-XX\" (installed: en-US).\n"));

    // The dictation language of the settings is the default, and --language overrides it.
    IniDefaults(IniDefaults::defaultFilePath())
        .setString(QStringLiteral("dictationLocale"), QStringLiteral("fr-FR"));
    run = runWithoutDesktop({QStringLiteral("transcribe"), file});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err,
              QStringLiteral("murmurly: No speech model is installed for \"fr-FR\" (installed: en-US).\n"));
    run = runWithoutDesktop(
        {QStringLiteral("transcribe"), file, QStringLiteral("--language"), QStringLiteral("en_us")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_FALSE(run.out.trimmed().isEmpty());
}

TEST(TranscribeCommand, TheUsersReplacementsAreApplied) {
    TemporaryHome home;
    const QString file = sentence("sense_and_sensibility_01_austen_64kb-0880");
    const QString plain = runWithoutDesktop({QStringLiteral("transcribe"), file}).out.trimmed();
    ASSERT_TRUE(plain.contains(QRegularExpression(QStringLiteral("\\bman\\b")))) << plain.toStdString();

    storeReplacementRule(QStringLiteral("man"), QStringLiteral("person"));
    ASSERT_TRUE(QFile::exists(home.configHome() + QStringLiteral("/murmurly/settings.ini")));

    const ProgramRun run = runWithoutDesktop({QStringLiteral("transcribe"), file});
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    QString expected = plain;
    expected.replace(QRegularExpression(QStringLiteral("\\bman\\b")), QStringLiteral("person"));
    EXPECT_EQ(run.out, expected + QLatin1Char('\n'));
}

TEST(TranscribeCommand, CleanupUsesTheConfiguredLocalModelServer) {
    TemporaryHome home;
    StandInHttpServer server;
    ASSERT_TRUE(server.start());
    server.setResponder([](const StandInHttpServer::Request& request) {
        StandInHttpServer::Response response;
        if (request.path == "/v1/models") {
            response.body = R"({"object":"list","data":[{"id":"tidy-model","object":"model"}]})";
        } else {
            response.body = R"({"choices":[{"message":{"role":"assistant","content":)"
                            R"("{\"cleanedText\":\"He was not an ill-disposed young man.\"}"}}]})";
        }
        return response;
    });
    IniDefaults(IniDefaults::defaultFilePath())
        .setString(QStringLiteral("cleanupLocalBaseURL"), server.url(QStringLiteral("/v1")));
    const QString file = sentence("sense_and_sensibility_01_austen_64kb-0880");
    const QString plain = runWithoutDesktop({QStringLiteral("transcribe"), file}).out.trimmed();
    ASSERT_FALSE(plain.isEmpty());
    EXPECT_TRUE(server.requests().isEmpty()); // no cleanup unless asked

    const ProgramRun run =
        runWithoutDesktop({QStringLiteral("transcribe"), file, QStringLiteral("--cleanup")});
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, QStringLiteral("He was not an ill-disposed young man.\n"));
    EXPECT_EQ(run.err, QString());
    ASSERT_EQ(server.requests().size(), 2);
    EXPECT_EQ(server.requests()[1].path, "/v1/chat/completions");
    EXPECT_TRUE(server.requests()[1].body.contains(plain.toUtf8()))
        << server.requests()[1].body.toStdString();
    EXPECT_TRUE(server.requests()[1].body.contains("tidy-model"));
}

TEST(TranscribeCommand, CleanupThatCannotBeHadPrintsTheTranscriptWithAWarning) {
    TemporaryHome home;
    const QString file = sentence("sense_and_sensibility_01_austen_64kb-0880");
    const QString plain = runWithoutDesktop({QStringLiteral("transcribe"), file}).out.trimmed();
    ASSERT_FALSE(plain.isEmpty());

    // No server listens: a port that was free a moment ago.
    QString deadURL;
    {
        StandInHttpServer closed;
        ASSERT_TRUE(closed.start());
        deadURL = closed.url(QStringLiteral("/v1"));
    }
    IniDefaults(IniDefaults::defaultFilePath()).setString(QStringLiteral("cleanupLocalBaseURL"), deadURL);
    ProgramRun run = runWithoutDesktop({QStringLiteral("transcribe"), file, QStringLiteral("--cleanup")});
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, plain + QLatin1Char('\n'));
    EXPECT_EQ(run.err,
              QStringLiteral("murmurly: Cleanup skipped: On-Device (local) is not usable. No local model "
                             "server answered at %1. Printing the transcript as recognized.\n")
                  .arg(deadURL));

    // A server that lists a model but fails the generation.
    StandInHttpServer failing;
    ASSERT_TRUE(failing.start());
    failing.setResponder([](const StandInHttpServer::Request& request) {
        StandInHttpServer::Response response;
        if (request.path == "/v1/models") {
            response.body = R"({"data":[{"id":"tidy-model"}]})";
        } else {
            response.status = 500;
            response.body = R"({"error":"out of memory"})";
        }
        return response;
    });
    IniDefaults(IniDefaults::defaultFilePath())
        .setString(QStringLiteral("cleanupLocalBaseURL"), failing.url(QStringLiteral("/v1")));
    run = runWithoutDesktop({QStringLiteral("transcribe"), file, QStringLiteral("--cleanup")});
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, plain + QLatin1Char('\n'));
    EXPECT_TRUE(run.err.endsWith(QStringLiteral(
        "murmurly: Cleanup with On-Device (local) failed. Printing the transcript as recognized.\n")))
        << run.err.toStdString();
}

TEST(TranscribeCommand, EngineServerPrintsTheServersTextAndFallsBackToTheOnDeviceText) {
    TemporaryHome home;
    StandInHttpServer server;
    ASSERT_TRUE(server.start());
    server.setJsonResponse(200, R"({"text":" He was not an ill-disposed young man. "})");
    IniDefaults settings(IniDefaults::defaultFilePath());
    settings.setString(QStringLiteral("transcriptionEndpointURL"), server.url(QStringLiteral("/inference")));
    const QString file = sentence("sense_and_sensibility_01_austen_64kb-0880");
    const QString plain = runWithoutDesktop({QStringLiteral("transcribe"), file}).out.trimmed();
    ASSERT_FALSE(plain.isEmpty());
    EXPECT_TRUE(server.requests().isEmpty()) << "the on-device engine is the default";

    ProgramRun run = runWithoutDesktop(
        {QStringLiteral("transcribe"), file, QStringLiteral("--engine"), QStringLiteral("server")});
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, QStringLiteral("He was not an ill-disposed young man.\n")) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());
    ASSERT_EQ(server.requests().size(), 1);
    EXPECT_EQ(server.requests()[0].path, "/inference");

    server.setJsonResponse(500, R"({"error":"model not loaded"})");
    run = runWithoutDesktop(
        {QStringLiteral("transcribe"), file, QStringLiteral("--engine"), QStringLiteral("server")});
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, plain + QLatin1Char('\n')) << run.err.toStdString();
    // The program's own log line comes first on standard error; the user's sentence ends it.
    EXPECT_TRUE(
        run.err.endsWith(QStringLiteral("murmurly: The transcription server failed: The server answered "
                                        "with status 500. Printing the on-device transcript.\n")))
        << run.err.toStdString();

    // The preference chooses the engine when the command line does not.
    settings.setString(QStringLiteral("speechEngine"), QStringLiteral("server"));
    server.setJsonResponse(200, R"({"text":"From the preference."})");
    run = runWithoutDesktop({QStringLiteral("transcribe"), file});
    EXPECT_EQ(run.out, QStringLiteral("From the preference.\n")) << run.err.toStdString();
    run = runWithoutDesktop(
        {QStringLiteral("transcribe"), file, QStringLiteral("--engine"), QStringLiteral("on-device")});
    EXPECT_EQ(run.out, plain + QLatin1Char('\n')) << run.err.toStdString();
    EXPECT_EQ(server.requests().size(), 3);
}

TEST(TranscribeCommand, EngineServerSendsNothingForASilentRecording) {
    TemporaryHome home;
    StandInHttpServer server;
    ASSERT_TRUE(server.start());
    server.setJsonResponse(200, R"({"text":"Thank you for watching."})");
    IniDefaults(IniDefaults::defaultFilePath())
        .setString(QStringLiteral("transcriptionEndpointURL"), server.url(QStringLiteral("/inference")));
    QTemporaryDir dir;
    const QString quiet = dir.filePath(QStringLiteral("quiet.wav"));
    ASSERT_TRUE(writeWav(quiet, std::vector<std::int16_t>(32000, 0), 16000));
    const ProgramRun run = runWithoutDesktop(
        {QStringLiteral("transcribe"), quiet, QStringLiteral("--engine"), QStringLiteral("server")});
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, QStringLiteral("\n"));
    EXPECT_TRUE(server.requests().isEmpty());
}
