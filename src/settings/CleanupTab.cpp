#include "settings/CleanupTab.h"

#include "cleanup/CleanupPrompt.h"
#include "cleanup/CleanupProvider.h"
#include "cleanup/CleanupSettings.h"
#include "cleanup/KeychainStore.h"
#include "cleanup/LocalModelServer.h"
#include "core/AppController.h"
#include "settings/SettingsLayout.h"
#include "settings/SettingsText.h"
#include "settings/StatusLabel.h"

#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

namespace murmurly {

namespace {

const QString availableText = QStringLiteral("On-device model is available. No API key or network needed.");
const QString unavailableFallback = QStringLiteral("Unavailable");
const QString keyStoredText = QStringLiteral("A key is stored in your login keyring.");
const QString keyringUnavailableText =
    QStringLiteral("No Secret Service is running, so keys cannot be stored. Start your desktop's keyring "
                   "(for example GNOME Keyring).");
const QString notConfiguredText = QStringLiteral("Not configured (missing key or unavailable).");
const QString callFailedText = QStringLiteral("Cleanup call failed. Check the key, model, and URL.");

// A label that names `buddy` for the form and for assistive technology.
QLabel* rowLabel(const QString& text, QWidget* buddy) {
    auto* label = new QLabel(text);
    label->setBuddy(buddy);
    buddy->setAccessibleName(text);
    return label;
}

} // namespace

CleanupTab::CleanupTab(AppController& controller, LocalModelServer& server, QWidget* parent)
    : CleanupTab(controller, server, &server, parent) {
}

CleanupTab::CleanupTab(AppController& controller, LocalLanguageModel& localModel, QWidget* parent)
    : CleanupTab(controller, localModel, nullptr, parent) {
}

CleanupTab::CleanupTab(AppController& controller, LocalLanguageModel& localModel, LocalModelServer* server,
                       QWidget* parent)
    : QWidget(parent)
    , m_controller(controller)
    , m_localModel(localModel)
    , m_server(server) {
    setAccessibleName(QStringLiteral("Cleanup"));
    setWindowTitle(QStringLiteral("Cleanup"));

    // The sections scroll when the window is too short for all of them.
    auto* content = new QWidget;
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(SettingsLayout::contentMargin, SettingsLayout::contentMargin,
                               SettingsLayout::contentMargin, SettingsLayout::contentMargin);
    // A little tighter than the other tabs, so that a network provider's four sections fit the
    // window at its smallest without scrolling.
    column->setSpacing(SettingsLayout::sectionSpacing - 10);
    column->addWidget(buildProviderSection());
    column->addWidget(m_localSection = buildLocalSection());
    column->addWidget(m_configurationSection = buildConfigurationSection());
    column->addWidget(m_keySection = buildKeySection());
    column->addSpacing(4);
    column->addWidget(buildTestSection());
    column->addStretch(1);

    auto* scroll = new QScrollArea;
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // Only the controls inside take the focus; the scroll area follows it to keep it in view.
    scroll->setFocusPolicy(Qt::NoFocus);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(scroll);

    CleanupSettings& settings = m_controller.cleanupSettings();
    connect(&settings, &CleanupSettings::providerChanged, this, &CleanupTab::providerChanged);
    connect(&settings, &CleanupSettings::keyRevisionChanged, this, &CleanupTab::refreshKey);
    connect(&settings, &CleanupSettings::openAIBaseURLChanged, this, [this] {
        const QString stored = m_controller.cleanupSettings().openAIBaseURL();
        if (m_baseURL->text() != stored) m_baseURL->setText(stored);
    });
    if (m_server) {
        connect(m_server, &LocalModelServer::availabilityChanged, this, [this] {
            refreshLocalStatus();
            refreshLocalModels();
        });
        connect(m_server, &LocalModelServer::baseURLChanged, this, [this] {
            if (m_localBaseURL->text() != m_server->baseURL()) m_localBaseURL->setText(m_server->baseURL());
        });
        connect(m_server, &LocalModelServer::modelChanged, this, [this] {
            if (m_localModelChoice->currentText() != m_server->model())
                m_localModelChoice->setEditText(m_server->model());
        });
    }
    refresh();
}

QGroupBox* CleanupTab::buildProviderSection() {
    auto* section = new QGroupBox(QStringLiteral("Provider"));
    auto* form = new QFormLayout(section);
    SettingsLayout::applyFormStyle(form);
    m_provider = new QComboBox;
    m_provider->setObjectName(QStringLiteral("cleanupProvider"));
    for (const CleanupProvider provider : CleanupProviders::allCases)
        m_provider->addItem(CleanupProviders::displayName(provider), CleanupProviders::rawValue(provider));
    form->addRow(rowLabel(QStringLiteral("Cleanup provider"), m_provider), m_provider);
    connect(m_provider, &QComboBox::activated, this, [this](int index) {
        const auto provider = CleanupProviders::fromRawValue(m_provider->itemData(index).toString());
        if (provider) m_controller.cleanupSettings().setProvider(*provider);
    });
    return section;
}

QGroupBox* CleanupTab::buildLocalSection() {
    auto* section =
        new QGroupBox(m_server ? QStringLiteral("Local Model Server") : QStringLiteral("On-Device Model"));
    auto* form = new QFormLayout(section);
    SettingsLayout::applyFormStyle(form);

    // Owned by the section even when no server's settings are shown (and so never laid out).
    m_localBaseURL = new QLineEdit(section);
    m_localBaseURL->setObjectName(QStringLiteral("localServerURL"));
    m_localBaseURL->setPlaceholderText(LocalModelServer::defaultBaseURL);
    m_localBaseURL->setClearButtonEnabled(true);
    m_localModelChoice = new QComboBox(section);
    m_localModelChoice->setObjectName(QStringLiteral("localModel"));
    m_localModelChoice->setEditable(true);
    m_localModelChoice->setInsertPolicy(QComboBox::NoInsert);
    m_localModelChoice->lineEdit()->setPlaceholderText(QStringLiteral("First model the server lists"));
    if (m_server) {
        form->addRow(rowLabel(QStringLiteral("Server URL"), m_localBaseURL), m_localBaseURL);
        form->addRow(rowLabel(QStringLiteral("Model"), m_localModelChoice), m_localModelChoice);
        m_localBaseURL->setText(m_server->baseURL());
        m_localModelChoice->setEditText(m_server->model());
        // Each edit is stored at once; the server checks again with the new setting.
        connect(m_localBaseURL, &QLineEdit::textEdited, this,
                [this](const QString& text) { m_server->setBaseURL(text); });
        connect(m_localModelChoice->lineEdit(), &QLineEdit::textEdited, this,
                [this](const QString& text) { m_server->setModel(text); });
        connect(m_localModelChoice, &QComboBox::textActivated, this,
                [this](const QString& text) { m_server->setModel(text); });
    } else {
        m_localBaseURL->hide();
        m_localModelChoice->hide();
    }

    m_localStatus = new StatusLabel;
    m_localStatus->setObjectName(QStringLiteral("localModelStatus"));
    m_checkAgain = new QPushButton(QStringLiteral("Check Again"));
    m_checkAgain->setObjectName(QStringLiteral("checkAgain"));
    m_checkAgain->setAccessibleName(QStringLiteral("Check Again"));
    connect(m_checkAgain, &QPushButton::clicked, this, [this] {
        m_localModel.refreshAvailability();
        refreshLocalStatus();
    });
    // The status gets the whole width, so an address in it is not broken over lines needlessly.
    form->addRow(m_localStatus);
    auto* checkRow = new QHBoxLayout;
    checkRow->addWidget(m_checkAgain);
    checkRow->addStretch(1);
    form->addRow(checkRow);
    if (m_server)
        form->addRow(
            SettingsText::note(QStringLiteral("A model server on this computer that speaks the OpenAI API, "
                                              "such as Ollama or llama.cpp's server. Transcripts never "
                                              "leave this computer.")));
    return section;
}

QGroupBox* CleanupTab::buildConfigurationSection() {
    auto* section = new QGroupBox(QStringLiteral("Configuration"));
    m_configurationForm = new QFormLayout(section);
    SettingsLayout::applyFormStyle(m_configurationForm);
    m_baseURL = new QLineEdit(m_controller.cleanupSettings().openAIBaseURL());
    m_baseURL->setObjectName(QStringLiteral("baseURL"));
    m_baseURL->setClearButtonEnabled(true);
    connect(m_baseURL, &QLineEdit::textEdited, this,
            [this](const QString& text) { m_controller.cleanupSettings().setOpenAIBaseURL(text); });
    m_model = new QLabel;
    m_model->setObjectName(QStringLiteral("model"));
    m_model->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_configurationForm->addRow(rowLabel(QStringLiteral("Base URL"), m_baseURL), m_baseURL);
    m_configurationForm->addRow(rowLabel(QStringLiteral("Model"), m_model), m_model);
    m_configurationForm->addRow(
        SettingsText::note(QStringLiteral("Model selection per provider is coming in a later update.")));
    return section;
}

QGroupBox* CleanupTab::buildKeySection() {
    auto* section = new QGroupBox(QStringLiteral("API Key"));
    auto* column = new QVBoxLayout(section);
    column->setSpacing(6);
    m_keyStored = new StatusLabel(StatusLabel::Kind::key, keyStoredText);
    m_keyStored->setObjectName(QStringLiteral("keyStored"));
    m_keyringUnavailable = new StatusLabel(StatusLabel::Kind::warning, keyringUnavailableText);
    m_keyringUnavailable->setObjectName(QStringLiteral("keyringUnavailable"));
    m_keyEntry = new QLineEdit;
    m_keyEntry->setObjectName(QStringLiteral("keyEntry"));
    m_keyEntry->setEchoMode(QLineEdit::Password);
    m_keyEntry->setAccessibleName(QStringLiteral("API key"));
    connect(m_keyEntry, &QLineEdit::textChanged, this, &CleanupTab::refreshSaveButton);
    connect(m_keyEntry, &QLineEdit::returnPressed, this, [this] {
        if (m_saveKey->isEnabled()) saveKey();
    });

    m_saveKey = new QPushButton(QStringLiteral("Save Key"));
    m_saveKey->setObjectName(QStringLiteral("saveKey"));
    m_saveKey->setAccessibleName(QStringLiteral("Save Key"));
    connect(m_saveKey, &QPushButton::clicked, this, &CleanupTab::saveKey);
    m_clearKey = new QPushButton(QStringLiteral("Clear Key"));
    m_clearKey->setObjectName(QStringLiteral("clearKey"));
    m_clearKey->setAccessibleName(QStringLiteral("Clear Key"));
    // Removing a key cannot be undone: the button reads in the destructive colour.
    QPalette destructive = m_clearKey->palette();
    // Only while the button can be pressed: disabled, it greys out like any other.
    for (const QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive})
        destructive.setColor(group, QPalette::ButtonText,
                             StatusLabel::colorFor(StatusLabel::Kind::failure, destructive));
    m_clearKey->setPalette(destructive);
    connect(m_clearKey, &QPushButton::clicked, this, &CleanupTab::clearKey);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_saveKey);
    buttons->addWidget(m_clearKey);
    buttons->addStretch(1);

    column->addWidget(m_keyStored);
    column->addWidget(m_keyringUnavailable);
    column->addWidget(m_keyEntry);
    column->addLayout(buttons);
    column->addWidget(
        SettingsText::note(QStringLiteral("Bring your own key. Stored only in your login keyring; the "
                                          "only thing sent to the provider is the transcript text.")));
    return section;
}

QWidget* CleanupTab::buildTestSection() {
    // An action rather than a setting: a row under the sections, without a box of its own.
    auto* section = new QWidget;
    auto* row = new QHBoxLayout(section);
    row->setContentsMargins(0, 0, 0, 0);
    m_test = new QPushButton(QStringLiteral("Test Cleanup"));
    m_test->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    m_test->setObjectName(QStringLiteral("testCleanup"));
    m_test->setAccessibleName(QStringLiteral("Test Cleanup"));
    connect(m_test, &QPushButton::clicked, this, [this] { runTest(); });
    m_testProgress = new QProgressBar;
    m_testProgress->setObjectName(QStringLiteral("testProgress"));
    m_testProgress->setAccessibleName(QStringLiteral("Testing"));
    m_testProgress->setRange(0, 0); // busy, without a known end
    m_testProgress->setTextVisible(false);
    m_testProgress->setFixedSize(80, 10);
    m_testResult = new StatusLabel;
    m_testResult->setObjectName(QStringLiteral("testResult"));
    row->addWidget(m_test, 0, Qt::AlignLeft | Qt::AlignTop);
    row->addWidget(m_testProgress, 0, Qt::AlignVCenter);
    row->addWidget(m_testResult, 1);
    setTestState(TestState::idle);
    return section;
}

void CleanupTab::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    // The keyring and a model server that was not answering may have started since last time.
    if (m_controller.cleanupSettings().provider() == CleanupProvider::onDevice &&
        m_localModel.availability() != LocalLanguageModel::Availability::available)
        m_localModel.refreshAvailability();
    refresh();
}

void CleanupTab::providerChanged() {
    m_keyEntry->clear();
    setTestState(TestState::idle);
    refresh();
}

void CleanupTab::refresh() {
    const CleanupProvider provider = m_controller.cleanupSettings().provider();
    m_provider->setCurrentIndex(m_provider->findData(CleanupProviders::rawValue(provider)));
    const bool onDevice = provider == CleanupProvider::onDevice;
    m_localSection->setVisible(onDevice);
    m_configurationSection->setVisible(!onDevice);
    m_keySection->setVisible(!onDevice);
    m_configurationForm->setRowVisible(m_baseURL, provider == CleanupProvider::openAICompatible);
    m_model->setText(CleanupProviders::defaultModel(provider));
    refreshLocalStatus();
    refreshLocalModels();
    refreshKey();
}

void CleanupTab::refreshLocalStatus() {
    if (m_localModel.availability() == LocalLanguageModel::Availability::available)
        m_localStatus->setStatus(StatusLabel::Kind::success, availableText);
    else
        m_localStatus->setStatus(StatusLabel::Kind::failure,
                                 m_localModel.unavailableReason().value_or(unavailableFallback));
}

void CleanupTab::refreshLocalModels() {
    if (!m_server) return;
    // The list offers what the server listed at its last answer; the text stays the stored choice.
    const QStringList listed = m_server->listedModels();
    QStringList shown;
    for (int i = 0; i < m_localModelChoice->count(); ++i)
        shown << m_localModelChoice->itemText(i);
    if (shown == listed) return;
    const QString text = m_localModelChoice->currentText();
    const int cursor = m_localModelChoice->lineEdit()->cursorPosition();
    const QSignalBlocker blocker(m_localModelChoice);
    m_localModelChoice->clear();
    m_localModelChoice->addItems(listed);
    m_localModelChoice->setEditText(text);
    m_localModelChoice->lineEdit()->setCursorPosition(cursor);
}

void CleanupTab::refreshKey() {
    readKeyState();
}

QCoro::Task<> CleanupTab::readKeyState() {
    const quint64 read = ++m_keyReads;
    const QPointer<CleanupTab> self(this);
    const std::optional<QString> account =
        CleanupProviders::keychainAccount(m_controller.cleanupSettings().provider());
    KeychainStore& keychain = m_controller.keychain();
    const bool stored =
        account && (co_await keychain.valueWithin(*account, AppController::cleanupKeyLimit)).has_value();
    if (!self || read != m_keyReads) co_return; // gone, or a newer read decides
    const bool keyringAvailable = keychain.isAvailable();
    m_keyStored->setVisible(stored);
    m_clearKey->setVisible(stored);
    m_keyringUnavailable->setVisible(!keyringAvailable);
    m_keyEntry->setEnabled(keyringAvailable);
    m_keyEntry->setPlaceholderText(stored ? QStringLiteral("Enter a new key to replace it")
                                          : QStringLiteral("Paste your API key"));
    refreshSaveButton();
}

void CleanupTab::refreshSaveButton() {
    m_saveKey->setEnabled(m_keyEntry->isEnabled() && !m_keyEntry->text().trimmed().isEmpty());
}

void CleanupTab::saveKey() {
    const QString key = m_keyEntry->text().trimmed();
    if (key.isEmpty()) return;
    CleanupSettings& settings = m_controller.cleanupSettings();
    if (const auto account = CleanupProviders::keychainAccount(settings.provider())) {
        // A failed write is not reported: the stored-key line simply stays away.
        m_controller.keychain().set(key, *account);
        settings.bumpKeyRevision();
    }
    m_keyEntry->clear();
}

void CleanupTab::clearKey() {
    CleanupSettings& settings = m_controller.cleanupSettings();
    if (const auto account = CleanupProviders::keychainAccount(settings.provider())) {
        m_controller.keychain().remove(*account);
        settings.bumpKeyRevision();
    }
}

QCoro::Task<> CleanupTab::runTest() {
    setTestState(TestState::running);
    // The same factory and prompt as a dictation, so a passing test means the next dictation's
    // cleanup will be attempted with the same key, model and URL.
    QPointer<CleanupTab> self(this);
    std::unique_ptr<TextTransformer> transformer =
        co_await m_controller.cleanupSettings().makeTransformerNow(AppController::cleanupKeyLimit);
    if (!self) co_return;
    if (!transformer) {
        setTestState(TestState::failed, notConfiguredText);
        co_return;
    }
    const std::optional<TransformResult> result =
        co_await transformer->transform(testSample, CleanupPrompt::system);
    if (!self) co_return;
    // A test still running when the provider changed reports into the new provider's view; its
    // token usage is not counted anywhere.
    if (result)
        setTestState(TestState::ok, result->text);
    else
        setTestState(TestState::failed, callFailedText);
}

void CleanupTab::setTestState(TestState state, const QString& text) {
    m_testState = state;
    m_test->setEnabled(state != TestState::running);
    m_testProgress->setVisible(state == TestState::running);
    m_testResult->setVisible(state == TestState::ok || state == TestState::failed);
    if (state == TestState::ok) m_testResult->setStatus(StatusLabel::Kind::success, text);
    if (state == TestState::failed) m_testResult->setStatus(StatusLabel::Kind::failure, text);
    if (state == TestState::idle || state == TestState::running)
        m_testResult->setStatus(StatusLabel::Kind::success, {});
}

} // namespace murmurly
