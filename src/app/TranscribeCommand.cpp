#include "app/TranscribeCommand.h"

#include "cleanup/CleanupPrompt.h"
#include "cleanup/CleanupProvider.h"
#include "cleanup/CleanupSettings.h"
#include "cleanup/KeychainStore.h"
#include "cleanup/LocalModelServer.h"
#include "core/AppController.h"
#include "core/SystemClock.h"
#include "output/ReplacementStore.h"
#include "platform/linux/IniDefaults.h"
#include "platform/linux/LibsecretStore.h"
#include "platform/linux/PocketsphinxBackend.h"
#include "speech/FileTranscriber.h"
#include "speech/LanguageTag.h"
#include "speech/MurmurlyError.h"
#include "speech/TranscriptionEngine.h"
#include "speech/TranscriptionSettings.h"
#include "speech/WavFile.h"

#include <QDeadlineTimer>
#include <QNetworkAccessManager>

#include <exception>
#include <functional>

namespace murmurly {

namespace {

using Say = std::function<void(const QString&)>;

// The recognizer's own spelling of `language`, when a model for it is installed.
std::optional<QString> installedLanguage(SpeechBackend& backend, const QString& language) {
    const QString wanted = bcp47Identifier(language);
    for (const QString& installed : backend.installedLanguages())
        if (bcp47Identifier(installed) == wanted) return installed;
    return std::nullopt;
}

// The configured cleanup of `text`, or `text` itself, with a warning, whenever cleanup cannot
// be had: the transcript is never lost.
QCoro::Task<QString> cleanUp(Defaults& defaults, QString text, Say say) {
    QNetworkAccessManager network;
    LibsecretStore secrets;
    KeychainStore keys(secrets);
    LocalModelServer localModel(defaults, network);
    CleanupSettings settings(defaults, keys, localModel, network);
    SystemClock clock;

    // The local model counts as available only once its server has answered. Waited for whatever
    // the provider, so that no request is left behind when this returns.
    const QDeadlineTimer deadline(TranscribeCommand::localModelWaitMilliseconds);
    while (localModel.availability() == LocalLanguageModel::Availability::unchecked && !deadline.hasExpired())
        co_await clock.sleep(std::chrono::milliseconds(20));

    const CleanupProvider provider = settings.provider();
    const QString name = CleanupProviders::displayName(provider);
    std::unique_ptr<TextTransformer> transformer = settings.makeTransformer();
    if (!transformer) {
        const QString why = provider == CleanupProvider::onDevice
                                ? localModel.unavailableReason().value_or(
                                      QStringLiteral("The local model server did not answer."))
                                : QStringLiteral("No API key for it is stored in the login keyring.");
        say(QStringLiteral("Cleanup skipped: %1 is not usable. %2 Printing the transcript as recognized.")
                .arg(name, why));
        co_return text;
    }
    const std::optional<TransformResult> result =
        co_await transformer->transform(text, CleanupPrompt::system);
    // A failed generation makes the model server check itself again; let that answer arrive
    // rather than abandon the request.
    const QDeadlineTimer recheck(TranscribeCommand::localModelWaitMilliseconds);
    while (localModel.availability() == LocalLanguageModel::Availability::unchecked && !recheck.hasExpired())
        co_await clock.sleep(std::chrono::milliseconds(20));
    if (!result) {
        say(QStringLiteral("Cleanup with %1 failed. Printing the transcript as recognized.").arg(name));
        co_return text;
    }
    co_return result->text;
}

} // namespace

QCoro::Task<int> TranscribeCommand::run(Options options, std::FILE* out, std::FILE* err) {
    const Say say = [err](const QString& line) {
        std::fprintf(err, "murmurly: %s\n", line.toUtf8().constData());
        std::fflush(err);
    };

    IniDefaults defaults;
    const QString language = options.language.value_or(
        defaults.stringValue(AppController::dictationLocaleKey).value_or(AppController::defaultLocaleID));

    QString readError;
    const std::optional<WavFile> wav = WavFile::read(options.file, readError);
    if (!wav) {
        say(readError);
        co_return exitFailure;
    }

    PocketsphinxBackend backend;
    std::optional<QString> model = installedLanguage(backend, language);
    if (!model) {
        // A recognizer that downloads its models gets the chance to; any failure shows below as
        // a missing model.
        try {
            co_await TranscriptionEngine::installModel(backend, language);
        } catch (...) {
        }
        model = installedLanguage(backend, language);
    }
    if (!model) {
        const QStringList installed = backend.installedLanguages();
        say(QStringLiteral("No speech model is installed for \"%1\" (installed: %2).")
                .arg(language,
                     installed.isEmpty() ? QStringLiteral("none") : installed.join(QStringLiteral(", "))));
        co_return exitFailure;
    }

    // The transcription server, when asked for; its key comes from the keyring.
    QNetworkAccessManager network;
    LibsecretStore secrets;
    KeychainStore keys(secrets);
    TranscriptionSettings transcription(defaults, keys, network);
    const SpeechEngineKind engine = options.engine.value_or(transcription.engine());
    std::shared_ptr<TranscriptionServer> server;
    if (engine == SpeechEngineKind::server) server = transcription.makeConfiguredServer();

    SystemClock clock;
    FileTranscriber transcriber(backend, clock);
    QString text;
    std::exception_ptr failure;
    try {
        text = co_await transcriber.transcribe(wav->audio(), *model, server);
    } catch (...) {
        failure = std::current_exception();
    }
    if (transcriber.serverFailure())
        say(QStringLiteral("The transcription server failed: %1 Printing the on-device transcript.")
                .arg(*transcriber.serverFailure()));
    if (failure) {
        say(QStringLiteral("Transcription failed: %1").arg(MurmurlyError::describe(failure)));
        co_return exitFailure;
    }

    ReplacementStore replacements(defaults);
    text = replacements.apply(text);
    if (options.cleanup && !text.isEmpty()) text = co_await cleanUp(defaults, text, say);

    std::fprintf(out, "%s\n", text.toUtf8().constData());
    std::fflush(out);
    // The recognizer's time limits, no longer needed, look in every quarter of a second before
    // they end; the program leaves once they have, rather than with their timers pending.
    co_await clock.sleep(TranscribeCommand::settleTime);
    co_return exitSuccess;
}

} // namespace murmurly
