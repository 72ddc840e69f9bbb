#include "settings/SpeechEngineSection.h"

#include "core/AppController.h"
#include "settings/SettingsText.h"
#include "speech/SpeechEngineKind.h"
#include "speech/TranscriptionEngine.h"
#include "speech/TranscriptionSettings.h"
#include "speech/WavFile.h"

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QUrl>

#include <vector>

namespace murmurly {

namespace {

QLabel* caption(QWidget* parent, const QString& name) {
    QLabel* label = SettingsText::note(QString(), parent);
    label->setAccessibleName(name);
    return label;
}

} // namespace

SpeechEngineSection::SpeechEngineSection(AppController& controller, QFormLayout* form, QWidget* parent)
    : QObject(parent)
    , m_controller(controller)
    , m_settings(controller.transcriptionSettings())
    , m_form(form) {
    m_engine = new QComboBox(parent);
    for (const SpeechEngineKind kind : SpeechEngineKinds::allCases)
        m_engine->addItem(SpeechEngineKinds::title(kind), SpeechEngineKinds::rawValue(kind));
    m_engine->setAccessibleName(QStringLiteral("Speech engine"));
    form->addRow(QStringLiteral("Speech engine"), m_engine);

    m_endpoint = new QLineEdit(parent);
    m_endpoint->setPlaceholderText(QStringLiteral("http://127.0.0.1:8080/inference"));
    m_endpoint->setAccessibleName(QStringLiteral("Endpoint"));
    form->addRow(QStringLiteral("Endpoint"), m_endpoint);

    m_model = new QLineEdit(parent);
    m_model->setPlaceholderText(QStringLiteral("optional, e.g. whisper-1"));
    m_model->setAccessibleName(QStringLiteral("Model"));
    form->addRow(QStringLiteral("Model"), m_model);

    auto* keyRow = new QWidget(parent);
    auto* keyLayout = new QHBoxLayout(keyRow);
    keyLayout->setContentsMargins(0, 0, 0, 0);
    m_key = new QLineEdit(keyRow);
    m_key->setEchoMode(QLineEdit::Password);
    m_key->setPlaceholderText(QStringLiteral("optional"));
    m_key->setAccessibleName(QStringLiteral("API key"));
    m_saveKey = new QPushButton(QStringLiteral("Save Key"), keyRow);
    m_removeKey = new QPushButton(QStringLiteral("Remove Key"), keyRow);
    keyLayout->addWidget(m_key, 1);
    keyLayout->addWidget(m_saveKey);
    keyLayout->addWidget(m_removeKey);
    form->addRow(QStringLiteral("API key"), keyRow);
    m_keyStatus = caption(parent, QStringLiteral("Key status"));
    form->addRow(static_cast<QWidget*>(nullptr), m_keyStatus);

    m_test = new QPushButton(QStringLiteral("Test"), parent);
    m_test->setAccessibleName(QStringLiteral("Test the transcription server"));
    m_testResult = caption(parent, QStringLiteral("Test result"));
    auto* testRow = new QWidget(parent);
    auto* testLayout = new QHBoxLayout(testRow);
    testLayout->setContentsMargins(0, 0, 0, 0);
    testLayout->addWidget(m_test);
    testLayout->addWidget(m_testResult, 1);
    form->addRow(static_cast<QWidget*>(nullptr), testRow);

    m_serverRows = {m_endpoint, m_model, keyRow, m_keyStatus, testRow};

    m_destination = caption(parent, QStringLiteral("Where audio goes"));
    form->addRow(static_cast<QWidget*>(nullptr), m_destination);

    connect(m_engine, &QComboBox::activated, this, [this](int index) {
        if (index >= 0 && index < int(SpeechEngineKinds::allCases.size()))
            m_settings.setEngine(SpeechEngineKinds::allCases.at(std::size_t(index)));
    });
    connect(m_endpoint, &QLineEdit::textEdited, this,
            [this](const QString& text) { m_settings.setEndpointURL(text.trimmed()); });
    connect(m_model, &QLineEdit::textEdited, this,
            [this](const QString& text) { m_settings.setModel(text.trimmed()); });
    connect(m_key, &QLineEdit::textChanged, this,
            [this] { m_saveKey->setEnabled(!m_key->text().trimmed().isEmpty()); });
    connect(m_saveKey, &QPushButton::clicked, this, [this] {
        if (m_settings.setApiKey(m_key->text().trimmed())) m_key->clear();
    });
    connect(m_removeKey, &QPushButton::clicked, this, [this] { m_settings.removeApiKey(); });
    connect(m_test, &QPushButton::clicked, this, [this] { runTest(); });
    connect(&m_settings, &TranscriptionSettings::changed, this, &SpeechEngineSection::refresh);
    refresh();
}

void SpeechEngineSection::refresh() {
    const SpeechEngineKind engine = m_settings.engine();
    m_engine->setCurrentIndex(m_engine->findData(SpeechEngineKinds::rawValue(engine)));
    // Fields being typed in keep their text as the user has it.
    if (!m_endpoint->hasFocus()) m_endpoint->setText(m_settings.endpointURL());
    if (!m_model->hasFocus()) m_model->setText(m_settings.model());
    const bool server = engine == SpeechEngineKind::server;
    for (QWidget* field : std::initializer_list<QWidget*>{m_endpoint, m_model, m_key, m_removeKey, m_test})
        field->setEnabled(server);
    // On-device, the server's settings are of no use: the section stays one line and a sentence.
    for (QWidget* row : std::as_const(m_serverRows))
        m_form->setRowVisible(row, server);
    m_saveKey->setEnabled(server && !m_key->text().trimmed().isEmpty());
    if (m_testing) m_test->setEnabled(false);
    refreshKeyStatus(server);

    const QString endpoint = m_settings.endpointURL();
    if (!server) {
        m_destination->setText(onDeviceLine);
    } else if (TranscriptionSettings::isOnThisComputer(endpoint)) {
        m_destination->setText(localLine);
    } else {
        m_destination->setText(remoteLinePrefix + QUrl(endpoint.trimmed()).host() + QLatin1Char('.'));
    }
}

QCoro::Task<> SpeechEngineSection::refreshKeyStatus(bool server) {
    const quint64 read = ++m_keyReads;
    const QPointer<SpeechEngineSection> self(this);
    const bool stored = co_await m_settings.hasApiKeyWithin(AppController::cleanupKeyLimit);
    if (!self || read != m_keyReads) co_return; // gone, or a newer read decides
    m_keyStatus->setText(stored ? keyStoredText : noKeyText);
    m_removeKey->setEnabled(server && stored);
}

QByteArray SpeechEngineSection::silentSecond() {
    const std::vector<std::int16_t> silence(TranscriptionEngine::serverSampleRate, 0);
    return WavFile::encodeInt16(silence.data(), std::int64_t(silence.size()),
                                TranscriptionEngine::serverSampleRate, 1);
}

QCoro::Task<> SpeechEngineSection::runTest() {
    const QPointer<SpeechEngineSection> self(this);
    m_testing = true;
    m_test->setEnabled(false);
    m_testResult->setText(QStringLiteral("Asking the server\u2026"));
    const std::shared_ptr<TranscriptionServer> server = m_settings.makeConfiguredServer();
    const ServerTranscript answer = co_await server->transcribe(
        silentSecond(), m_controller.dictationLocaleID(), TranscriptionEngine::finalizeLimit);
    if (!self) co_return;
    m_testing = false;
    if (answer.text)
        m_testResult->setText(answer.text->isEmpty()
                                  ? QStringLiteral("The server answered (no words in one second of silence).")
                                  : QStringLiteral("The server answered: \u201c%1\u201d").arg(*answer.text));
    else
        m_testResult->setText(QStringLiteral("The server failed: ") + answer.error);
    refresh();
}

} // namespace murmurly
