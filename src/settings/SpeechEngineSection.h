#pragma once

#include <QCoro/QCoroTask>
#include <QList>
#include <QWidget>

class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QPushButton;

namespace murmurly {

class AppController;
class TranscriptionSettings;

// The rows of the General tab's "Speech engine" section: on-device or a transcription server,
// the server's endpoint, model and key, a Test button that sends one second of silence and shows
// what came back, and a line saying where recordings go. Every field writes through at once.
class SpeechEngineSection : public QObject {
    Q_OBJECT

public:
    static inline const QString localLine =
        QStringLiteral("Recordings stay on this computer: the server runs here.");
    // Followed by the host name and a full stop.
    static inline const QString remoteLinePrefix =
        QStringLiteral("Each dictation's recording leaves this computer and is sent to ");
    static inline const QString onDeviceLine =
        QStringLiteral("Recognition runs on this computer; no audio leaves it.");
    static inline const QString keyStoredText = QStringLiteral("A key is stored in your login keyring.");
    static inline const QString noKeyText = QStringLiteral("No key stored (only needed by cloud services).");

    // Adds the rows to `form`; widgets are owned by `parent`.
    SpeechEngineSection(AppController& controller, QFormLayout* form, QWidget* parent);

    QComboBox* engineBox() const { return m_engine; }
    QLineEdit* endpointField() const { return m_endpoint; }
    QLineEdit* modelField() const { return m_model; }
    QLineEdit* keyField() const { return m_key; }
    QPushButton* saveKeyButton() const { return m_saveKey; }
    QPushButton* removeKeyButton() const { return m_removeKey; }
    QLabel* keyStatusLabel() const { return m_keyStatus; }
    QPushButton* testButton() const { return m_test; }
    QLabel* testResultLabel() const { return m_testResult; }
    QLabel* audioDestinationLabel() const { return m_destination; }

    // One second of 16 kHz mono 16-bit silence as a WAV file: what the Test button sends.
    static QByteArray silentSecond();

private:
    void refresh();
    // The key line; the keyring is read bounded, so a locked keyring never freezes the window.
    QCoro::Task<> refreshKeyStatus(bool server);
    QCoro::Task<> runTest();

    AppController& m_controller;
    TranscriptionSettings& m_settings;
    QComboBox* m_engine = nullptr;
    QLineEdit* m_endpoint = nullptr;
    QLineEdit* m_model = nullptr;
    QLineEdit* m_key = nullptr;
    QPushButton* m_saveKey = nullptr;
    QPushButton* m_removeKey = nullptr;
    QLabel* m_keyStatus = nullptr;
    QPushButton* m_test = nullptr;
    QLabel* m_testResult = nullptr;
    QLabel* m_destination = nullptr;
    // The server's rows, shown only while the server is the engine.
    QFormLayout* m_form = nullptr;
    QList<QWidget*> m_serverRows;
    bool m_testing = false;
    quint64 m_keyReads = 0; // the newest key read is the one shown
};

} // namespace murmurly
