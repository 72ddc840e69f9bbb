#pragma once

#include "core/CaptureMode.h"
#include "core/Clock.h"
#include "core/DictationState.h"
#include "core/ModelStatus.h"
#include "core/SharedCompletion.h"
#include "hotkey/HotkeyBinding.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <memory>
#include <optional>

class QNetworkAccessManager;

namespace murmurly {

class ActiveApplication;
class AudioInput;
class CaptureDevice;
class CleanupSettings;
class Clipboard;
class Clock;
class Defaults;
class HistoryStore;
class HotkeyMonitor;
class KeyEventSource;
class KeyState;
class KeychainStore;
class LocalLanguageModel;
class LoginItem;
class PasteKeys;
class Permissions;
class ReplacementStore;
class SecretStore;
class SpeechBackend;
class TextInserter;
class TranscriptionEngine;
class TranscriptionSettings;
class UsageTracker;

// Everything the controller needs of the machine, handed in by whoever builds it: the program's
// main on the desktop, fakes in tests. All of it must outlive the controller.
struct AppServices {
    Defaults& defaults;
    Clock& clock;
    KeyEventSource& keyEvents;
    KeyState& keyState;
    ActiveApplication& activeApplication;
    Clipboard& clipboard;
    PasteKeys& pasteKeys;
    SpeechBackend& speech;
    std::unique_ptr<CaptureDevice> microphone; // owned by the controller from then on
    SecretStore& secrets;
    LocalLanguageModel& localModel;
    QNetworkAccessManager& network;
    LoginItem& loginItem;
    Permissions& permissions;
    QString historyFilePath;
};

// Drives one dictation at a time from the trigger to the inserted text, owns the long-lived
// services and stores, runs the start-up checks, and publishes what the menu and the settings
// window show. Main thread only; every asynchronous step is a coroutine on the main thread, so
// nothing here is locked.
class AppController : public QObject {
    Q_OBJECT
    Q_PROPERTY(murmurly::DictationState state READ state NOTIFY stateChanged)
    Q_PROPERTY(QString stateLabel READ stateLabel NOTIFY stateLabelChanged)
    Q_PROPERTY(murmurly::ModelStatus modelStatus READ modelStatus NOTIFY modelStatusChanged)
    Q_PROPERTY(bool micAuthorized READ micAuthorized NOTIFY micAuthorizedChanged)
    Q_PROPERTY(bool axTrusted READ axTrusted WRITE setAxTrusted NOTIFY axTrustedChanged)
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin NOTIFY launchAtLoginChanged)
    Q_PROPERTY(QString lastError READ lastErrorText NOTIFY lastErrorChanged)
    Q_PROPERTY(murmurly::HotkeyBinding hotkeyBinding READ hotkeyBinding NOTIFY hotkeyBindingChanged)
    Q_PROPERTY(QString dictationLocaleID READ dictationLocaleID NOTIFY dictationLocaleIDChanged)
    Q_PROPERTY(QStringList supportedLocales READ supportedLocales NOTIFY supportedLocalesChanged)
    Q_PROPERTY(
        murmurly::CaptureMode captureMode READ captureMode WRITE setCaptureMode NOTIFY captureModeChanged)

public:
    // Preference keys owned here.
    static inline const QString captureModeKey = QStringLiteral("captureMode");
    static inline const QString dictationLocaleKey = QStringLiteral("dictationLocale");
    static inline const QString trailingSpaceKey = QStringLiteral("trailingSpace");
    static inline const QString cleanupEnabledKey = QStringLiteral("cleanupEnabled");
    static inline const QString didSetDefaultLoginItemKey = QStringLiteral("didSetDefaultLoginItem");
    static inline const QString defaultLocaleID = QStringLiteral("en-US");
    // The menu's line when the transcription server's text could not be used.
    static inline const QString serverFallbackError =
        QStringLiteral("Transcription server failed \u2014 inserted the on-device transcript.");

    static constexpr double minimumHoldSeconds = 0.15;
    static constexpr std::chrono::milliseconds watchdogInterval{300};
    static constexpr std::chrono::seconds recordingLimit{300};
    static constexpr std::chrono::seconds permissionPollInterval{3};
    // How long a dictation waits for the keyring to hand over the cleanup key.
    static constexpr std::chrono::milliseconds cleanupKeyLimit{5000};
    // History's provider name when cleanup is off.
    static inline const QString noProviderName = QStringLiteral("\u2014");

    // Builds the services and stores, registers the one default, wires the monitor, and starts
    // the start-up sequence (which runs until its first wait before this returns).
    explicit AppController(AppServices services, QObject* parent = nullptr);
    ~AppController() override;

    DictationState state() const { return m_state; }
    QString stateLabel() const;
    const ModelStatus& modelStatus() const { return m_modelStatus; }
    bool micAuthorized() const { return m_micAuthorized; }
    bool axTrusted() const { return m_axTrusted; }
    // The menu stores the answer of its own keyboard-access request here.
    void setAxTrusted(bool trusted);
    bool launchAtLogin() const { return m_launchAtLogin; }
    const std::optional<QString>& lastError() const { return m_lastError; }
    QString lastErrorText() const { return m_lastError.value_or(QString()); }
    const HotkeyBinding& hotkeyBinding() const { return m_hotkeyBinding; }
    // The trigger's name as the user sees it: the key the desktop assigned where the desktop
    // decides it (a shortcuts portal), else the binding's own name. Changes are told by
    // hotkeyBindingChanged.
    QString triggerName() const;
    const QString& dictationLocaleID() const { return m_dictationLocaleID; }
    const QStringList& supportedLocales() const { return m_supportedLocales; }

    // Read from the preferences on every access.
    CaptureMode captureMode() const;
    void setCaptureMode(CaptureMode mode);

    ReplacementStore& replacements() { return *m_replacements; }
    CleanupSettings& cleanupSettings() { return *m_cleanupSettings; }
    UsageTracker& usage() { return *m_usage; }
    HistoryStore& history() { return *m_history; }
    KeychainStore& keychain() { return *m_keychain; }
    TranscriptionSettings& transcriptionSettings() { return *m_transcriptionSettings; }
    HotkeyMonitor& hotkeyMonitor() { return *m_hotkeyMonitor; }
    Defaults& defaults() { return m_services.defaults; }

    // The three trigger edges, as the monitor delivers them. `at` is when the key event was read,
    // so that a tap is told from a hold by the keyboard's timing, not by how soon the edge was
    // handled; without it, the edge counts as happening now (D-Bus calls, the menu).
    void pttPressed();
    void pttPressed(Clock::TimePoint at);
    void pttReleased();
    void pttReleased(Clock::TimePoint at);
    void cancelDictation();
    // For scripts and desktops without global keys: starts a dictation when idle, and stops one
    // that is recording (its text is inserted), whatever the capture mode.
    void toggleDictation();

    void setLocale(const QString& localeID);
    void setLaunchAtLogin(bool enabled);
    void requestMicrophoneAccess();
    // Asks for keyboard access again (the menu's and the Permissions tab's action), stores the
    // answer, and starts the trigger listener when access is there and the listener is not
    // running: the permission poll only acts on a change, which this answer has already taken.
    void requestKeyboardAccess();
    void openSystemSettings(const QString& pane);
    // Adopts `binding` when given; in every case restarts the monitor the recorder stopped.
    void endHotkeyRecording(const std::optional<HotkeyBinding>& binding);
    // Pastes an old text again: no state change, no history, no trailing space.
    void reinsert(const QString& text);

    // Whether a dictation's engine exists right now.
    bool hasEngine() const { return m_engine != nullptr; }

signals:
    void stateChanged(murmurly::DictationState state);
    void stateLabelChanged();
    void modelStatusChanged();
    void micAuthorizedChanged(bool authorized);
    void axTrustedChanged(bool trusted);
    void launchAtLoginChanged(bool enabled);
    void lastErrorChanged();
    void hotkeyBindingChanged();
    void dictationLocaleIDChanged();
    void supportedLocalesChanged();
    void captureModeChanged();

private:
    struct Alive; // outlives the controller, so a suspended task can tell it is gone

    QCoro::Task<> startUp();
    QCoro::Task<> pollPermissions();
    QCoro::Task<> ensureModel();
    QCoro::Task<> startDictation(SharedCompletion started);
    QCoro::Task<> finishDictation(bool insert);
    QCoro::Task<> finishCancel(std::unique_ptr<TranscriptionEngine> engine);
    QCoro::Task<> runWatchdog(std::shared_ptr<bool> cancelled, bool recoverLostRelease);
    QCoro::Task<> waitForStart();
    // Whether the dictation numbered `serial` is still the latest one.
    bool isCurrent(std::uint64_t serial) const { return serial == m_serial; }

    void stopRecording(bool insert);
    void armWatchdog(bool recoverLostRelease);
    void cancelWatchdog();
    void startHotkeyMonitor();

    void setState(DictationState state);
    void setModelStatus(const ModelStatus& status);
    void setMicAuthorized(bool authorized);
    void setLaunchAtLoginValue(bool enabled);
    void setLastError(const QString& text);

    AppServices m_services;
    std::shared_ptr<Alive> m_alive;

    DictationState m_state = DictationState::idle;
    ModelStatus m_modelStatus = ModelStatus::checking();
    bool m_micAuthorized = false;
    bool m_axTrusted = false;
    bool m_hotkeyFailureTold = false; // a failed start is told once, not at every retry
    bool m_launchAtLogin = false;
    std::optional<QString> m_lastError;

    std::unique_ptr<KeychainStore> m_keychain;
    std::unique_ptr<ReplacementStore> m_replacements;
    std::unique_ptr<CleanupSettings> m_cleanupSettings;
    std::unique_ptr<TranscriptionSettings> m_transcriptionSettings;
    std::unique_ptr<UsageTracker> m_usage;
    std::unique_ptr<HistoryStore> m_history;
    HotkeyBinding m_hotkeyBinding;
    std::unique_ptr<HotkeyMonitor> m_hotkeyMonitor;
    std::unique_ptr<AudioInput> m_audio;
    std::unique_ptr<TextInserter> m_inserter;

    std::unique_ptr<TranscriptionEngine> m_engine;
    std::optional<SharedCompletion> m_startTask;
    std::optional<Clock::TimePoint> m_pressedAt;
    std::shared_ptr<bool> m_releaseWatchdog; // the running watchdog's cancellation flag
    std::optional<QString> m_dictationAppBundleID;
    // Counts presses that started a dictation; a late task of an older dictation leaves the state
    // of a newer one alone.
    std::uint64_t m_serial = 0;
    // Counts model checks; only the latest one publishes its outcome.
    std::uint64_t m_modelCheck = 0;

    QString m_dictationLocaleID;
    QStringList m_supportedLocales;
};

} // namespace murmurly
