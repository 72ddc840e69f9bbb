#pragma once

#include <QCoro/QCoroTask>
#include <QString>
#include <QWidget>

class QComboBox;
class QFormLayout;
class QGroupBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;

namespace murmurly {

class AppController;
class LocalLanguageModel;
class LocalModelServer;
class StatusLabel;

// The Cleanup tab: which provider cleans transcripts up, whether the local model can be used,
// the API keys of the network providers (kept in the login keyring), the OpenAI-compatible base
// URL, and a one-shot test of the configured provider. Every control writes through at once; the
// tab keeps only the key being typed and the outcome of the last test.
class CleanupTab : public QWidget {
    Q_OBJECT

public:
    enum class TestState { idle, running, ok, failed };

    // The text a test cleans up.
    static inline const QString testSample =
        QStringLiteral("um so this is uh a quick test of the cleanup you know");

    // With the local model server's own settings (its address and model) shown and editable.
    CleanupTab(AppController& controller, LocalModelServer& server, QWidget* parent = nullptr);
    // With only the local model's availability shown.
    CleanupTab(AppController& controller, LocalLanguageModel& localModel, QWidget* parent = nullptr);

    TestState testState() const { return m_testState; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    CleanupTab(AppController& controller, LocalLanguageModel& localModel, LocalModelServer* server,
               QWidget* parent);

    QGroupBox* buildProviderSection();
    QGroupBox* buildLocalSection();
    QGroupBox* buildConfigurationSection();
    QGroupBox* buildKeySection();
    QWidget* buildTestSection();

    void providerChanged();
    void refresh();
    void refreshLocalStatus();
    void refreshLocalModels();
    // Shows whether a key is stored; the keyring is read bounded, so a keyring that waits for an
    // unlock prompt never freezes the window (until it answers, no key is shown as stored).
    void refreshKey();
    QCoro::Task<> readKeyState();
    void refreshSaveButton();
    void saveKey();
    void clearKey();
    QCoro::Task<> runTest();
    void setTestState(TestState state, const QString& text = QString());

    AppController& m_controller;
    LocalLanguageModel& m_localModel;
    LocalModelServer* m_server;
    TestState m_testState = TestState::idle;
    quint64 m_keyReads = 0; // the newest key read is the one shown

    QComboBox* m_provider = nullptr;
    QGroupBox* m_localSection = nullptr;
    QLineEdit* m_localBaseURL = nullptr;
    QComboBox* m_localModelChoice = nullptr;
    StatusLabel* m_localStatus = nullptr;
    QPushButton* m_checkAgain = nullptr;
    QGroupBox* m_configurationSection = nullptr;
    QFormLayout* m_configurationForm = nullptr;
    QLineEdit* m_baseURL = nullptr;
    QLabel* m_model = nullptr;
    QGroupBox* m_keySection = nullptr;
    StatusLabel* m_keyStored = nullptr;
    StatusLabel* m_keyringUnavailable = nullptr;
    QLineEdit* m_keyEntry = nullptr;
    QPushButton* m_saveKey = nullptr;
    QPushButton* m_clearKey = nullptr;
    QPushButton* m_test = nullptr;
    QProgressBar* m_testProgress = nullptr;
    StatusLabel* m_testResult = nullptr;
};

} // namespace murmurly
