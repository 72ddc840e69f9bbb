#include "core/AppController.h"

#include "cleanup/CleanupPrompt.h"
#include "cleanup/CleanupProvider.h"
#include "cleanup/CleanupSettings.h"
#include "cleanup/KeychainStore.h"
#include "core/ActiveApplication.h"
#include "core/Defaults.h"
#include "core/LatencyTrace.h"
#include "core/Log.h"
#include "core/LoginItem.h"
#include "core/Permissions.h"
#include "core/ReferenceDate.h"
#include "hotkey/HotkeyMonitor.h"
#include "hotkey/KeyState.h"
#include "output/ReplacementStore.h"
#include "output/TextInserter.h"
#include "records/HistoryStore.h"
#include "records/UsageTracker.h"
#include "speech/AudioInput.h"
#include "speech/MurmurlyError.h"
#include "speech/TranscriptionEngine.h"
#include "speech/TranscriptionSettings.h"

#include <QFileInfo>
#include <QPointer>
#include <QUuid>

#include <exception>
#include <utility>

namespace murmurly {

namespace {

// A speech model that cannot be loaded fails every dictation in its language alike.
bool isModelLoadError(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const ModelLoadError&) {
        return true;
    } catch (...) {
        return false;
    }
}

} // namespace

// Set false when the controller goes away. Every task holds it and looks at it after each wait,
// because a task suspended in a sleep or a network call may resume after the controller is gone.
struct AppController::Alive {
    bool value = true;
};

namespace {} // namespace

AppController::AppController(AppServices services, QObject* parent)
    : QObject(parent)
    , m_services(std::move(services))
    , m_alive(std::make_shared<Alive>()) {
    Defaults& defaults = m_services.defaults;
    m_launchAtLogin = m_services.loginItem.isEnabled();
    m_keychain = std::make_unique<KeychainStore>(m_services.secrets);
    m_replacements = std::make_unique<ReplacementStore>(defaults);
    m_cleanupSettings =
        std::make_unique<CleanupSettings>(defaults, *m_keychain, m_services.localModel, m_services.network);
    m_transcriptionSettings =
        std::make_unique<TranscriptionSettings>(defaults, *m_keychain, m_services.network);
    m_usage = std::make_unique<UsageTracker>(defaults);
    m_history = std::make_unique<HistoryStore>(defaults, m_services.clock, m_services.historyFilePath);
    connect(m_history.get(), &HistoryStore::unreadableFileKept, this, [this](const QString& keptPath) {
        setLastError(QStringLiteral("History could not be read \u2014 the old file was kept as ") +
                     QFileInfo(keptPath).fileName() + QLatin1Char('.'));
    });
    m_hotkeyMonitor = std::make_unique<HotkeyMonitor>(m_services.keyEvents, m_services.clock);
    m_audio = std::make_unique<AudioInput>(std::move(m_services.microphone));
    m_inserter = std::make_unique<TextInserter>(m_services.clipboard, m_services.pasteKeys, m_services.clock);
    m_dictationLocaleID = defaults.stringValue(dictationLocaleKey).value_or(defaultLocaleID);

    defaults.registerDefault(trailingSpaceKey, true);

    m_hotkeyBinding = HotkeyBinding::load(defaults);
    m_hotkeyMonitor->setBinding(m_hotkeyBinding);
    // The monitor delivers on the main thread; it is owned here, so the controller outlives it,
    // but a guard costs nothing.
    const QPointer<AppController> self(this);
    m_hotkeyMonitor->onPress = [self](Clock::TimePoint at) {
        if (self) self->pttPressed(at);
    };
    m_hotkeyMonitor->onRelease = [self](Clock::TimePoint at) {
        if (self) self->pttReleased(at);
    };
    m_hotkeyMonitor->onCancel = [self] {
        if (self) self->cancelDictation();
    };
    m_services.keyEvents.setAssignmentObserver([self] {
        if (self) emit self->hotkeyBindingChanged();
    });

    startUp();
}

AppController::~AppController() {
    m_alive->value = false;
    cancelWatchdog();
    m_hotkeyMonitor->stop();
    m_audio->stop();
    // An insertion still waiting puts the user's clipboard back now rather than never.
    m_inserter->cancel();
}

QString AppController::triggerName() const {
    return m_services.keyEvents.assignedTrigger().value_or(m_hotkeyBinding.displayName);
}

QString AppController::stateLabel() const {
    return murmurly::stateLabel(m_state, captureMode());
}

CaptureMode AppController::captureMode() const {
    return CaptureModes::fromStored(m_services.defaults.stringValue(captureModeKey));
}

void AppController::setCaptureMode(CaptureMode mode) {
    m_services.defaults.setString(captureModeKey, CaptureModes::rawValue(mode));
    emit captureModeChanged();
    emit stateLabelChanged();
}

// ---- the trigger ----

void AppController::pttPressed() {
    pttPressed(m_services.clock.now());
}

void AppController::pttPressed(Clock::TimePoint at) {
    LatencyTrace::mark(LatencyTrace::triggerDown);
    if (captureMode() == CaptureMode::toggle && m_state == DictationState::recording) {
        stopRecording(true);
        return;
    }
    if (m_state != DictationState::idle) return;
    if (!m_modelStatus.isReady()) {
        qCInfo(lcApp, "Trigger pressed but model not ready");
        return;
    }

    ++m_serial;
    setState(DictationState::recording);
    m_pressedAt = at;
    m_dictationAppBundleID.reset();
    if (const std::optional<FocusedApplication> focused = m_services.activeApplication.focused();
        focused && !focused->identifier.isEmpty())
        m_dictationAppBundleID = focused->identifier;
    m_hotkeyMonitor->setCancelArmed(true);

    SharedCompletion started;
    m_startTask = started;
    startDictation(started);

    armWatchdog(captureMode() == CaptureMode::hold);
}

void AppController::pttReleased() {
    pttReleased(m_services.clock.now());
}

void AppController::pttReleased(Clock::TimePoint at) {
    LatencyTrace::mark(LatencyTrace::triggerUp);
    if (captureMode() != CaptureMode::hold || m_state != DictationState::recording) return;
    const bool insert =
        m_pressedAt && std::chrono::duration<double>(at - *m_pressedAt).count() >= minimumHoldSeconds;
    stopRecording(insert);
}

void AppController::cancelDictation() {
    if (m_state != DictationState::recording) return;
    cancelWatchdog();
    m_hotkeyMonitor->setCancelArmed(false);
    finishCancel(std::move(m_engine));
}

void AppController::toggleDictation() {
    if (m_state == DictationState::recording) {
        stopRecording(true);
        return;
    }
    pttPressed();
}

// ---- one dictation ----

QCoro::Task<> AppController::startDictation(SharedCompletion started) {
    const std::shared_ptr<Alive> alive = m_alive;
    std::exception_ptr failure;
    try {
        m_engine = std::make_unique<TranscriptionEngine>(
            m_services.speech, m_services.clock, m_dictationLocaleID, m_transcriptionSettings->makeServer());
        // A cancel may take the engine away while this waits; it waits for this start before it
        // drops the engine, so the pointer stays good until the end of the sequence.
        TranscriptionEngine* engine = m_engine.get();
        const std::optional<AudioFormat> format = engine->bestAudioFormat();
        if (!format) throw MurmurlyError::noAudioFormat();
        std::shared_ptr<AnalyzerInputStream> input = co_await engine->start();
        if (!alive->value) co_return;
        m_audio->start(*format, [input](AnalyzerInput buffer) { input->yield(std::move(buffer)); });
        qCInfo(lcApp, "Dictation started (audio format: %s)", qUtf8Printable(format->toString()));
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        const QString description = MurmurlyError::describe(failure);
        setLastError(QStringLiteral("Could not start dictation: ") + description);
        qCCritical(lcApp, "Failed to start dictation: %s", qUtf8Printable(description));
        if (isModelLoadError(failure)) setModelStatus(ModelStatus::failed(description));
        m_audio->stop();
        if (std::unique_ptr<TranscriptionEngine> engine = std::move(m_engine)) {
            co_await engine->cancel();
            if (!alive->value) co_return;
        }
        setState(DictationState::idle);
    }
    started.complete();
}

QCoro::Task<> AppController::waitForStart() {
    if (!m_startTask) co_return;
    const SharedCompletion started = *m_startTask;
    co_await started.wait();
}

void AppController::stopRecording(bool insert) {
    if (m_state != DictationState::recording) return;
    cancelWatchdog();
    m_hotkeyMonitor->setCancelArmed(false);
    setState(DictationState::transcribing);
    finishDictation(insert);
}

QCoro::Task<> AppController::finishDictation(bool insert) {
    const std::shared_ptr<Alive> alive = m_alive;
    const std::uint64_t serial = m_serial;
    co_await waitForStart();
    if (!alive->value) co_return;
    m_startTask.reset();
    m_audio->stop();

    std::unique_ptr<TranscriptionEngine> engine = std::move(m_engine);
    if (!engine) {
        if (isCurrent(serial)) setState(DictationState::idle);
        co_return;
    }
    if (!insert) {
        co_await engine->cancel();
        if (!alive->value) co_return;
        qCInfo(lcApp, "Accidental tap \u2014 dictation cancelled");
        if (isCurrent(serial)) setState(DictationState::idle);
        co_return;
    }

    QString transcript;
    std::exception_ptr failure;
    try {
        transcript = co_await engine->finish();
    } catch (...) {
        failure = std::current_exception();
    }
    if (!alive->value) co_return;
    const bool serverFailed = engine->serverFailure().has_value();
    engine.reset();
    if (failure && isModelLoadError(failure)) {
        // The model's load failed while the dictation ran: it never started recognizing.
        const QString description = MurmurlyError::describe(failure);
        setLastError(QStringLiteral("Could not start dictation: ") + description);
        qCCritical(lcApp, "Failed to start dictation: %s", qUtf8Printable(description));
        setModelStatus(ModelStatus::failed(description));
        if (isCurrent(serial)) setState(DictationState::idle);
        co_return;
    }
    if (serverFailed)
        setLastError(
            transcript.isEmpty()
                ? QStringLiteral("Transcription server failed \u2014 the on-device recognizer heard nothing.")
                : serverFallbackError);
    if (failure) {
        const QString description = MurmurlyError::describe(failure);
        setLastError(QStringLiteral("Transcription failed: ") + description);
        qCCritical(lcApp, "Failed to finish dictation: %s", qUtf8Printable(description));
        if (isCurrent(serial)) setState(DictationState::idle);
        co_return;
    }

    qCInfo(lcApp, "Transcript: %s", qUtf8Printable(Log::privateText(transcript)));
    if (transcript.isEmpty()) {
        if (isCurrent(serial)) setState(DictationState::idle);
        co_return;
    }

    // The user's vocabulary first, so that the cleanup model sees it already applied.
    QString text = m_replacements->apply(transcript);
    QString providerName = noProviderName;
    if (m_services.defaults.boolValue(cleanupEnabledKey).value_or(false)) {
        const CleanupProvider provider = m_cleanupSettings->provider();
        providerName = CleanupProviders::displayName(provider);
        // Asked afresh, and without blocking the main thread: the local model server may have
        // started since the last check, and the keyring may wait for an unlock.
        std::unique_ptr<TextTransformer> transformer =
            co_await m_cleanupSettings->makeTransformerNow(cleanupKeyLimit);
        if (!alive->value) co_return;
        if (!transformer) {
            setLastError(QStringLiteral("Cleanup is on but the selected provider isn't configured."));
        } else {
            setState(DictationState::cleaning);
            const std::optional<TransformResult> result =
                co_await transformer->transform(text, CleanupPrompt::system);
            if (!alive->value) co_return;
            if (!result) {
                setLastError(QStringLiteral("Cleanup failed \u2014 inserted the raw transcript."));
            } else {
                m_usage->record(provider, result->usage);
                text = result->text;
            }
        }
    }

    setState(DictationState::inserting);
    const QString finalText = text;
    if (m_services.defaults.boolValue(trailingSpaceKey).value_or(true)) text += QLatin1Char(' ');
    // The text goes to whatever has the focus now, not necessarily the application of the press.
    co_await m_inserter->insert(text);
    if (!alive->value) co_return;

    HistoryEntry entry;
    entry.id = QUuid::createUuid();
    entry.timestamp = ReferenceDate::seconds(m_services.clock.now());
    entry.rawText = transcript;
    if (finalText != transcript) entry.cleanedText = finalText;
    entry.providerName = providerName;
    entry.appBundleID = m_dictationAppBundleID;
    m_history->record(entry);

    if (isCurrent(serial)) setState(DictationState::idle);
}

QCoro::Task<> AppController::finishCancel(std::unique_ptr<TranscriptionEngine> engine) {
    const std::shared_ptr<Alive> alive = m_alive;
    const std::uint64_t serial = m_serial;
    co_await waitForStart();
    if (!alive->value) co_return;
    m_startTask.reset();
    m_audio->stop();
    if (engine) {
        co_await engine->cancel();
        if (!alive->value) co_return;
    }
    if (isCurrent(serial)) setState(DictationState::idle);
    qCInfo(lcApp, "Dictation cancelled by user");
}

// ---- the recording watchdog ----

void AppController::armWatchdog(bool recoverLostRelease) {
    cancelWatchdog();
    auto cancelled = std::make_shared<bool>(false);
    m_releaseWatchdog = cancelled;
    runWatchdog(cancelled, recoverLostRelease);
}

void AppController::cancelWatchdog() {
    if (m_releaseWatchdog) *m_releaseWatchdog = true;
    m_releaseWatchdog.reset();
}

QCoro::Task<> AppController::runWatchdog(std::shared_ptr<bool> cancelled, bool recoverLostRelease) {
    const std::shared_ptr<Alive> alive = m_alive;
    const Clock::TimePoint startedAt = m_services.clock.now();
    bool sawKeyDown = false;
    while (m_state == DictationState::recording && !*cancelled) {
        co_await m_services.clock.sleep(watchdogInterval);
        if (!alive->value || *cancelled) co_return;
        if (m_state != DictationState::recording) co_return;
        if (m_services.clock.now() - startedAt > recordingLimit) {
            qCInfo(lcApp, "Recording exceeded 5 minutes \u2014 watchdog stopping it");
            stopRecording(true);
            co_return;
        }
        if (recoverLostRelease) {
            const bool down = m_services.keyState.isKeyDown(m_hotkeyBinding.keyCode);
            if (!down && sawKeyDown) {
                qCInfo(lcApp, "Release event was lost \u2014 watchdog stopping recording");
                stopRecording(true);
                co_return;
            }
            sawKeyDown = down;
        }
    }
}

// ---- start-up, permissions, model ----

QCoro::Task<> AppController::startUp() {
    const std::shared_ptr<Alive> alive = m_alive;
    Permissions& permissions = m_services.permissions;
    setAxTrusted(permissions.keyboardAccess());
    setMicAuthorized(permissions.microphoneAuthorized());
    if (!m_axTrusted) setAxTrusted(permissions.requestKeyboardAccess());
    if (!m_micAuthorized) {
        const bool granted = co_await permissions.requestMicrophoneAccess();
        if (!alive->value) co_return;
        setMicAuthorized(granted);
    }

    startHotkeyMonitor();

    Defaults& defaults = m_services.defaults;
    if (!defaults.boolValue(didSetDefaultLoginItemKey).value_or(false)) {
        defaults.setBool(didSetDefaultLoginItemKey, true);
        if (!m_services.loginItem.isEnabled()) setLaunchAtLogin(true);
    }

    pollPermissions();

    m_supportedLocales = m_services.speech.supportedLanguages();
    emit supportedLocalesChanged();

    co_await ensureModel();
}

void AppController::startHotkeyMonitor() {
    if (m_hotkeyMonitor->start()) {
        qCInfo(lcApp, "Hotkey event tap installed");
        m_hotkeyFailureTold = false;
    } else if (!std::exchange(m_hotkeyFailureTold, true)) {
        setLastError(QStringLiteral("Could not install the hotkey listener \u2014 check keyboard access."));
        qCCritical(lcApp, "Failed to install event tap \u2014 Accessibility permission missing?");
    }
}

QCoro::Task<> AppController::pollPermissions() {
    const std::shared_ptr<Alive> alive = m_alive;
    Permissions& permissions = m_services.permissions;
    for (;;) {
        co_await m_services.clock.sleep(permissionPollInterval);
        if (!alive->value) co_return;
        // Each value is written only when it changed, so observers are not woken every time.
        const bool trusted = permissions.keyboardAccess();
        if (trusted != m_axTrusted) setAxTrusted(trusted);
        // A trigger source that went away while access stands (a desktop that closed its
        // shortcuts session, an X server that came back) is started again.
        if (trusted && !m_hotkeyMonitor->isRunning()) startHotkeyMonitor();
        const bool microphone = permissions.microphoneAuthorized();
        if (microphone != m_micAuthorized) setMicAuthorized(microphone);
    }
}

QCoro::Task<> AppController::ensureModel() {
    const std::shared_ptr<Alive> alive = m_alive;
    const std::uint64_t check = ++m_modelCheck;
    const QString locale = m_dictationLocaleID;
    setModelStatus(ModelStatus::checking());
    std::exception_ptr failure;
    try {
        const bool installed = co_await TranscriptionEngine::isModelInstalled(m_services.speech, locale);
        if (!alive->value || check != m_modelCheck) co_return;
        if (!installed) {
            setModelStatus(ModelStatus::downloading());
            co_await TranscriptionEngine::installModel(m_services.speech, locale);
            if (!alive->value || check != m_modelCheck) co_return;
        }
    } catch (...) {
        failure = std::current_exception();
    }
    if (!alive->value || check != m_modelCheck) co_return;
    if (failure) {
        const QString description = MurmurlyError::describe(failure);
        setModelStatus(ModelStatus::failed(description));
        setLastError(QStringLiteral("Speech model setup failed: ") + description);
        qCCritical(lcApp, "Model setup failed: %s", qUtf8Printable(description));
        co_return;
    }
    setModelStatus(ModelStatus::ready());
    qCInfo(lcApp, "Speech model ready");
    // Loads the recognizer now, so the first dictation does not wait for it.
    m_services.speech.prepare(locale);
}

// ---- operations of the settings and the menu ----

void AppController::setLocale(const QString& localeID) {
    if (m_dictationLocaleID != localeID) {
        m_dictationLocaleID = localeID;
        emit dictationLocaleIDChanged();
    }
    m_services.defaults.setString(dictationLocaleKey, localeID);
    ensureModel();
}

void AppController::setLaunchAtLogin(bool enabled) {
    LoginItem& item = m_services.loginItem;
    const std::optional<QString> error = enabled ? item.registerItem() : item.unregisterItem();
    if (error) {
        setLastError(QStringLiteral("Launch at login: ") + *error);
        qCCritical(lcApp, "Launch-at-login change failed: %s", qUtf8Printable(*error));
    }
    // Mirrors the desktop's state, also after a failure.
    setLaunchAtLoginValue(item.isEnabled());
}

void AppController::requestMicrophoneAccess() {
    [](AppController* self, std::shared_ptr<Alive> alive) -> QCoro::Task<> {
        const bool granted = co_await self->m_services.permissions.requestMicrophoneAccess();
        if (alive->value) self->setMicAuthorized(granted);
    }(this, m_alive);
}

void AppController::requestKeyboardAccess() {
    setAxTrusted(m_services.permissions.requestKeyboardAccess());
    if (m_axTrusted && !m_hotkeyMonitor->isRunning()) startHotkeyMonitor();
}

void AppController::openSystemSettings(const QString& pane) {
    m_services.permissions.openSystemSettings(pane);
}

void AppController::endHotkeyRecording(const std::optional<HotkeyBinding>& binding) {
    if (binding) {
        m_hotkeyBinding = *binding;
        m_hotkeyMonitor->setBinding(*binding);
        binding->save(m_services.defaults);
        emit hotkeyBindingChanged();
    }
    m_hotkeyMonitor->start();
}

void AppController::reinsert(const QString& text) {
    m_inserter->insert(text);
}

// ---- published values ----

void AppController::setState(DictationState state) {
    if (m_state == state) return;
    m_state = state;
    emit stateChanged(state);
    emit stateLabelChanged();
}

void AppController::setModelStatus(const ModelStatus& status) {
    if (m_modelStatus == status && m_modelStatus.message == status.message) return;
    m_modelStatus = status;
    emit modelStatusChanged();
}

void AppController::setMicAuthorized(bool authorized) {
    if (m_micAuthorized == authorized) return;
    m_micAuthorized = authorized;
    emit micAuthorizedChanged(authorized);
}

void AppController::setAxTrusted(bool trusted) {
    if (m_axTrusted == trusted) return;
    m_axTrusted = trusted;
    emit axTrustedChanged(trusted);
}

void AppController::setLaunchAtLoginValue(bool enabled) {
    if (m_launchAtLogin == enabled) return;
    m_launchAtLogin = enabled;
    emit launchAtLoginChanged(enabled);
}

void AppController::setLastError(const QString& text) {
    m_lastError = text;
    emit lastErrorChanged();
}

} // namespace murmurly
