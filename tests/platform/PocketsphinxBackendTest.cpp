#include "platform/linux/PocketsphinxBackend.h"
#include "LogCapture.h"
#include "RunTask.h"
#include "SpeechCorpus.h"
#include "SpeechTestSupport.h"
#include "TemporaryHome.h"
#include "core/SystemClock.h"
#include "speech/MurmurlyError.h"
#include "speech/TranscriptionEngine.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

using namespace murmurly;
using namespace murmurly::testing;

namespace {

const QString debianModels = QStringLiteral("/usr/share/pocketsphinx/model");

// One backend for the suite, so the model is loaded once as in the program.
PocketsphinxBackend& sharedBackend() {
    static PocketsphinxBackend backend({debianModels});
    return backend;
}

QString transcribe(PocketsphinxBackend& backend, const std::vector<std::int16_t>& samples) {
    ManualClock clock;
    TranscriptionEngine engine(backend, clock, QStringLiteral("en-US"));
    std::shared_ptr<AnalyzerInputStream> input = runTask(engine.start());
    feed(*input, samples);
    return finishUnhurried(engine, clock);
}

// A gate that holds a model load until the test opens it.
class Gate {
public:
    void open() {
        {
            std::lock_guard lock(m_mutex);
            m_open = true;
        }
        m_changed.notify_all();
    }
    bool isOpen() {
        std::lock_guard lock(m_mutex);
        return m_open;
    }
    void waitOpen() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_open; });
    }
    void waitOpenFor(std::chrono::milliseconds limit) {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, limit, [this] { return m_open; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
};

// A backend whose model loads wait at a gate. Should something wait for the load after all, a
// watchdog opens the gate in the end, so that the test fails instead of hanging.
class GatedBackend {
public:
    GatedBackend()
        : backend({debianModels},
                  [this](const PocketsphinxModel& model) {
                      gate.waitOpen();
                      if (failLoad) throw std::runtime_error("The model files are damaged.");
                      auto decoder = std::make_shared<PocketsphinxDecoder>(model);
                      loadEnded = true;
                      return decoder;
                  })
        , m_watchdog([this] {
            gate.waitOpenFor(std::chrono::seconds(20));
            gate.open();
        }) {}
    ~GatedBackend() {
        gate.open();
        m_watchdog.join();
    }

    Gate gate;
    std::atomic<bool> loadEnded{false};
    std::atomic<bool> failLoad{false};
    PocketsphinxBackend backend;

private:
    std::thread m_watchdog;
};

} // namespace

TEST(PocketsphinxBackend, CancellingASessionWhileTheModelLoadsEndsItsResultsWithoutWaitingForTheLoad) {
    GatedBackend gated;
    auto session = gated.backend.makeSession(QStringLiteral("en-US"));
    const std::shared_ptr<ResultStream> results = session->results();
    auto input = std::make_shared<AnalyzerInputStream>();
    runTask(session->start(input));
    feed(*input, std::vector<std::int16_t>(16000, 0));

    session->cancelAndFinishNow();
    const Bounded<std::optional<TranscriptionResult>> last = runBounded(results->next());
    const bool openWhenResultsEnded = gated.gate.isOpen();
    session.reset(); // joins the session's recognizer thread
    const bool openWhenDestroyed = gated.gate.isOpen();
    gated.gate.open();

    ASSERT_TRUE(last.finished);
    EXPECT_FALSE(last.value->has_value());
    EXPECT_FALSE(openWhenResultsEnded) << "the results ended only after the model load";
    EXPECT_FALSE(openWhenDestroyed) << "destroying the session waited for the model load";
}

TEST(PocketsphinxBackend, CancellingADictationWhileTheModelLoadsDoesNotWaitForTheLoad) {
    GatedBackend gated;
    SystemClock clock;
    auto engine = std::make_unique<TranscriptionEngine>(gated.backend, clock, QStringLiteral("en-US"));
    std::shared_ptr<AnalyzerInputStream> input = runTask(engine->start());
    feed(*input, std::vector<std::int16_t>(16000, 0));

    runTask(engine->cancel());
    engine.reset();
    const bool openWhenDestroyed = gated.gate.isOpen();
    gated.gate.open();
    QCoreApplication::processEvents(); // the cancelled results reader ends on the event loop

    EXPECT_FALSE(openWhenDestroyed) << "cancelling the dictation waited for the model load";
    // The load went on without the dictation, for the next one.
    EXPECT_TRUE(gated.backend.decoder(QStringLiteral("en-US")));
    EXPECT_TRUE(gated.loadEnded);
}

TEST(PocketsphinxBackend, DebiansEnUsModelReadsAsEnUS) {
    PocketsphinxBackend backend({debianModels});
    EXPECT_EQ(backend.installedLanguages(), QStringList{QStringLiteral("en-US")});
    EXPECT_EQ(backend.supportedLanguages(), backend.installedLanguages());
    const std::optional<PocketsphinxModel> model = backend.model(QStringLiteral("en-US"));
    ASSERT_TRUE(model);
    EXPECT_EQ(model->acousticModel, debianModels + QStringLiteral("/en-us/en-us"));
    EXPECT_EQ(model->dictionary, debianModels + QStringLiteral("/en-us/cmudict-en-us.dict"));
    EXPECT_EQ(model->languageModel, debianModels + QStringLiteral("/en-us/en-us.lm.bin"));
}

TEST(PocketsphinxBackend, ModelsInTheUsersDataFolderAreLanguagesToo) {
    TemporaryHome home;
    const QString folder = home.dataHome() + QStringLiteral("/murmurly/models/en-GB");
    ASSERT_TRUE(QDir().mkpath(folder));
    ASSERT_TRUE(
        QFile::link(debianModels + QStringLiteral("/en-us/en-us"), folder + QStringLiteral("/acoustic")));
    ASSERT_TRUE(QFile::link(debianModels + QStringLiteral("/en-us/cmudict-en-us.dict"),
                            folder + QStringLiteral("/words.dict")));
    ASSERT_TRUE(QFile::link(debianModels + QStringLiteral("/en-us/en-us.lm.bin"),
                            folder + QStringLiteral("/words.lm.bin")));
    // A folder without a language model is no language.
    const QString incomplete = home.dataHome() + QStringLiteral("/murmurly/models/de-DE");
    ASSERT_TRUE(QDir().mkpath(incomplete));
    ASSERT_TRUE(
        QFile::link(debianModels + QStringLiteral("/en-us/en-us"), incomplete + QStringLiteral("/acoustic")));

    PocketsphinxBackend backend; // the default folders, read now that XDG_DATA_HOME points home
    EXPECT_EQ(PocketsphinxBackend::defaultModelRoots().first(),
              home.dataHome() + QStringLiteral("/murmurly/models"));
    EXPECT_EQ(backend.installedLanguages(), (QStringList{QStringLiteral("en-GB"), QStringLiteral("en-US")}));
    EXPECT_TRUE(runTask(TranscriptionEngine::isModelInstalled(backend, QStringLiteral("en-GB"))));
    EXPECT_FALSE(runTask(TranscriptionEngine::isModelInstalled(backend, QStringLiteral("de-DE"))));
}

TEST(PocketsphinxBackend, InstallingALanguageWithoutAModelThrowsModelUnsupported) {
    PocketsphinxBackend backend({debianModels});
    try {
        runTask(TranscriptionEngine::installModel(backend, QStringLiteral("fr-FR")));
        FAIL() << "installModel should have thrown";
    } catch (const MurmurlyError& error) {
        EXPECT_EQ(error.code(), MurmurlyError::Code::modelUnsupported);
    }
    // A present model needs nothing.
    EXPECT_NO_THROW(runTask(TranscriptionEngine::installModel(backend, QStringLiteral("en-US"))));
}

TEST(PocketsphinxBackend, TheBestAudioFormatIs16kMono16Bit) {
    PocketsphinxBackend backend({debianModels});
    EXPECT_EQ(backend.bestAudioFormat(QStringLiteral("en-US")), AudioFormat::int16(16000, 1));
    EXPECT_EQ(backend.bestAudioFormat(QStringLiteral("fr-FR")), std::nullopt);
}

TEST(PocketsphinxBackend, TheDecoderIsLoadedOnceAndItsMessagesGoToTheDebugLog) {
    LogCapture log;
    PocketsphinxBackend backend({debianModels});
    backend.prepare(QStringLiteral("en-US"));
    const std::shared_ptr<PocketsphinxDecoder> first = backend.decoder(QStringLiteral("en-US"));
    const std::shared_ptr<PocketsphinxDecoder> second = backend.decoder(QStringLiteral("en-US"));
    EXPECT_EQ(first.get(), second.get());
    const QList<LogCapture::Entry> entries = log.entries();
    int fromPocketsphinx = 0;
    for (const LogCapture::Entry& entry : entries) {
        if (!entry.message.startsWith(QStringLiteral("pocketsphinx: "))) continue;
        ++fromPocketsphinx;
        EXPECT_EQ(entry.type, QtDebugMsg) << entry.message.toStdString();
    }
    EXPECT_GT(fromPocketsphinx, 10);
}

TEST(PocketsphinxBackend, SilenceGivesAnEmptyTranscript) {
    const std::vector<std::int16_t> silence(16000 * 3, 0);
    EXPECT_EQ(transcribe(sharedBackend(), silence), QString());
}

TEST(PocketsphinxBackend, ADictationOfNearSilenceDoesNotSpoilTheNextOne) {
    const WavAudio sentence =
        readWav(libriVoxFolder() + QStringLiteral("/sense_and_sensibility_01_austen_64kb-0880.wav"));
    ASSERT_EQ(sentence.sampleRate, 16000);
    // What a muted or very quiet microphone delivers: a hiss of one or two steps.
    std::vector<std::int16_t> hiss(16000 * 3);
    std::uint32_t seed = 12345;
    for (std::int16_t& sample : hiss) {
        seed = seed * 1664525u + 1013904223u;
        sample = std::int16_t(int(seed >> 30) - 2);
    }

    // Fresh backends, so that only what each hears here shapes it.
    PocketsphinxBackend control({debianModels});
    const QString expected = transcribe(control, sentence.samples);

    PocketsphinxBackend backend({debianModels});
    EXPECT_EQ(transcribe(backend, hiss), QString());
    const QString text = transcribe(backend, sentence.samples);
    EXPECT_EQ(text.toStdString(), expected.toStdString());
    EXPECT_TRUE(text.endsWith(QStringLiteral(" man"))) << text.toStdString();
}

TEST(PocketsphinxBackend, LibriVoxSentencesFedAsBuffersAreRecognizedAsWellAsByPocketsphinxContinuous) {
    const QList<Utterance> utterances = libriVoxUtterances();
    ASSERT_EQ(utterances.size(), 5);
    WordErrors ours;
    WordErrors reference;
    for (const Utterance& utterance : utterances) {
        const WavAudio audio = readWav(utterance.wavPath);
        ASSERT_EQ(audio.sampleRate, 16000);
        const QString text = transcribe(sharedBackend(), audio.samples);
        const ReferenceDecode continuous = decodeWithPocketsphinxContinuous(utterance.wavPath);
        ASSERT_TRUE(continuous.ok);
        ours += wordErrors(utterance.reference, text);
        reference += wordErrors(utterance.reference, continuous.text);
        std::printf("%s\n  murmurly:   %s\n  continuous: %s\n", qPrintable(utterance.id), qPrintable(text),
                    qPrintable(continuous.text));
    }
    std::printf(
        "WER murmurly (buffers from file) %.1f%% (%d/%d), pocketsphinx_continuous -infile %.1f%% (%d/%d)\n",
        ours.rate(), ours.errors, ours.referenceWords, reference.rate(), reference.errors,
        reference.referenceWords);
    EXPECT_LE(ours.rate(), reference.rate() + 3.0);
}

TEST(PocketsphinxBackend, AModelThatFailedToLoadCannotStartADictation) {
    PocketsphinxBackend backend({debianModels},
                                [](const PocketsphinxModel&) -> std::shared_ptr<PocketsphinxDecoder> {
                                    throw std::runtime_error("The acoustic model could not be read.");
                                });
    backend.prepare(QStringLiteral("en-US"));
    auto session = backend.makeSession(QStringLiteral("en-US"));
    // Waits for the session's load to end: either it is still the backend's current load, or it
    // has failed already and the backend tries a new one.
    EXPECT_THROW(backend.decoder(QStringLiteral("en-US")), std::runtime_error);
    try {
        runTask(session->start(std::make_shared<AnalyzerInputStream>()));
        FAIL() << "start should have thrown";
    } catch (const ModelLoadError& e) {
        EXPECT_STREQ(e.what(), "The acoustic model could not be read.");
    }
}

TEST(PocketsphinxBackend, AModelLoadFailingWhileTheDictationRunsEndsItWithThatError) {
    GatedBackend gated;
    gated.failLoad = true;
    SystemClock clock;
    TranscriptionEngine engine(gated.backend, clock, QStringLiteral("en-US"));
    std::shared_ptr<AnalyzerInputStream> input = runTask(engine.start());
    feed(*input, std::vector<std::int16_t>(16000, 0));
    gated.gate.open();
    try {
        runTask(engine.finish());
        FAIL() << "finish should have thrown";
    } catch (const ModelLoadError& e) {
        EXPECT_STREQ(e.what(), "The model files are damaged.");
    }
}

namespace {

const QString sentenceWithWords =
    libriVoxFolder() + QStringLiteral("/sense_and_sensibility_01_austen_64kb-0880.wav");

// The cepstral mean a decoder of Debian's model starts from when nothing is stored.
std::vector<float> modelDefaultMean() {
    PocketsphinxBackend backend({debianModels});
    return backend.decoder(QStringLiteral("en-US"))->cepstralMean();
}

void expectSameMean(const std::vector<float>& actual, const std::vector<float>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < actual.size(); ++i)
        EXPECT_NEAR(actual[i], expected[i], 1e-4) << "value " << i;
}

void writeFile(const QString& path, const QByteArray& bytes) {
    ASSERT_TRUE(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

} // namespace

TEST(PocketsphinxBackend, TheCepstralMeanIsStoredOnlyAfterADictationInWhichWordsWereHeard) {
    TemporaryHome home;
    const CepstralMeanStore store(CepstralMeanStore::defaultFolder());
    EXPECT_EQ(store.filePath(QStringLiteral("en-US")),
              home.path() + QStringLiteral("/cache/murmurly/cepstral-mean/en-US.json"));
    const WavAudio sentence = readWav(sentenceWithWords);
    ASSERT_EQ(sentence.sampleRate, 16000);

    PocketsphinxBackend backend({debianModels}, {}, store);
    EXPECT_EQ(transcribe(backend, std::vector<std::int16_t>(16000 * 2, 0)), QString());
    EXPECT_FALSE(QFile::exists(store.filePath(QStringLiteral("en-US")))) << "stored after silence";

    EXPECT_FALSE(transcribe(backend, sentence.samples).isEmpty());
    const std::shared_ptr<PocketsphinxDecoder> decoder = backend.decoder(QStringLiteral("en-US"));
    const std::optional<std::vector<float>> stored =
        store.load(QStringLiteral("en-US"), decoder->model().acousticModel, decoder->cepstralMean().size());
    ASSERT_TRUE(stored) << "nothing stored after a dictation with words";
    expectSameMean(*stored, decoder->cepstralMean());
    // What was stored is learned, not the model's default.
    EXPECT_GT(std::abs((*stored)[0] - modelDefaultMean()[0]), 0.5f);

    // Another silent dictation leaves the stored mean as the last words left it.
    EXPECT_EQ(transcribe(backend, std::vector<std::int16_t>(16000 * 2, 0)), QString());
    expectSameMean(*store.load(QStringLiteral("en-US"), decoder->model().acousticModel, stored->size()),
                   *stored);
}

TEST(PocketsphinxBackend, TheStoredCepstralMeanSurvivesARestart) {
    TemporaryHome home;
    const CepstralMeanStore store(CepstralMeanStore::defaultFolder());
    std::vector<float> learned;
    {
        PocketsphinxBackend firstRun({debianModels}, {}, store);
        EXPECT_FALSE(transcribe(firstRun, readWav(sentenceWithWords).samples).isEmpty());
        learned = firstRun.decoder(QStringLiteral("en-US"))->cepstralMean();
    }
    PocketsphinxBackend secondRun({debianModels}, {}, store);
    expectSameMean(secondRun.decoder(QStringLiteral("en-US"))->cepstralMean(), learned);
    // Without the store, a new run starts from the model's default.
    PocketsphinxBackend withoutStore({debianModels});
    expectSameMean(withoutStore.decoder(QStringLiteral("en-US"))->cepstralMean(), modelDefaultMean());
}

TEST(PocketsphinxBackend, ACorruptOrForeignStoredCepstralMeanIsIgnored) {
    TemporaryHome home;
    const CepstralMeanStore store(CepstralMeanStore::defaultFolder());
    const QString path = store.filePath(QStringLiteral("en-US"));
    const std::vector<float> fallback = modelDefaultMean();
    const QByteArray model = QFile::encodeName(debianModels + QStringLiteral("/en-us/en-us"));
    const QByteArray thirteen = "[40,1,2,3,4,5,6,7,8,9,10,11,12]";
    const QList<QPair<const char*, QByteArray>> files{
        {"not JSON", "\x01\x02garbage{{"},
        {"empty", ""},
        {"another format", R"({"format":2,"acousticModel":")" + model + R"(","mean":)" + thirteen + "}"},
        {"another acoustic model",
         R"({"format":1,"acousticModel":"/elsewhere/model","mean":)" + thirteen + "}"},
        {"too few values", R"({"format":1,"acousticModel":")" + model + R"(","mean":[40,1,2]})"},
        {"a value that is not a number",
         R"({"format":1,"acousticModel":")" + model + R"(","mean":[40,1,2,3,4,5,6,7,8,9,10,11,"x"]})"},
        {"an implausible value",
         R"({"format":1,"acousticModel":")" + model + R"(","mean":[1e30,1,2,3,4,5,6,7,8,9,10,11,12]})"},
    };
    for (const auto& [what, bytes] : files) {
        SCOPED_TRACE(what);
        writeFile(path, bytes);
        PocketsphinxBackend backend({debianModels}, {}, store);
        expectSameMean(backend.decoder(QStringLiteral("en-US"))->cepstralMean(), fallback);
    }
    // A folder where the file should be cannot be read or written; dictation goes on regardless.
    ASSERT_TRUE(QFile::remove(path));
    ASSERT_TRUE(QDir().mkpath(path));
    PocketsphinxBackend backend({debianModels}, {}, store);
    expectSameMean(backend.decoder(QStringLiteral("en-US"))->cepstralMean(), fallback);
    EXPECT_TRUE(transcribe(backend, readWav(sentenceWithWords).samples).endsWith(QStringLiteral(" man")));

    // The same file with this model's name is used: the checks above reject only what differs.
    ASSERT_TRUE(QDir(path).removeRecursively());
    writeFile(path, R"({"format":1,"acousticModel":")" + model + R"(","mean":)" + thirteen + "}");
    PocketsphinxBackend accepted({debianModels}, {}, store);
    EXPECT_NEAR(accepted.decoder(QStringLiteral("en-US"))->cepstralMean()[0], 40.0f, 1e-4);
}
