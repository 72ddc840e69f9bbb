#include "settings/GeneralTab.h"

#include "core/AppController.h"
#include "settings/HotkeyRecorderRow.h"
#include "settings/InputDeviceName.h"
#include "settings/LocaleOptions.h"
#include "settings/PreferenceSwitches.h"
#include "settings/SettingsLayout.h"
#include "settings/SettingsText.h"
#include "settings/SpeechEngineSection.h"
#include "speech/LanguageTag.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QVBoxLayout>

namespace murmurly {

namespace {

QLabel* helpLabel(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setTextFormat(Qt::PlainText);
    SettingsText::makeCaption(label);
    SettingsText::makeSecondary(label);
    return label;
}

// A row in the field column under the labelled row above it, such as that row's help text.
void addUnlabelled(QFormLayout* form, QWidget* field) {
    form->addRow(static_cast<QWidget*>(nullptr), field);
}

} // namespace

GeneralTab::GeneralTab(AppController& controller, const KeyEventTranslator& translator,
                       InputDeviceName& inputName, QWidget* parent)
    : QWidget(parent)
    , m_controller(controller)
    , m_inputName(inputName) {
    setWindowTitle(QStringLiteral("General"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(SettingsLayout::contentMargin, SettingsLayout::contentMargin,
                               SettingsLayout::contentMargin, SettingsLayout::contentMargin);
    layout->setSpacing(SettingsLayout::sectionSpacing);
    PreferenceSwitches& switches = PreferenceSwitches::of(controller);

    // Dictation
    QFormLayout* dictation = addSection(QStringLiteral("Dictation"));
    m_recorder = new HotkeyRecorderRow(controller, translator, this);
    dictation->addRow(QStringLiteral("Trigger"), m_recorder);
    // No label of its own: while the warning is hidden its row takes no room at all.
    addUnlabelled(dictation, m_recorder->warningLabel());
    m_triggerNote = helpLabel(QString(), this);
    m_triggerNote->setAccessibleName(QStringLiteral("Trigger note"));
    m_triggerNote->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_triggerNote->setVisible(false);
    addUnlabelled(dictation, m_triggerNote);
    m_captureMode = new QComboBox(this);
    for (const CaptureMode mode : CaptureModes::allCases)
        m_captureMode->addItem(CaptureModes::title(mode));
    m_captureMode->setAccessibleName(QStringLiteral("Capture mode"));
    m_captureMode->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    m_captureMode->setMinimumContentsLength(12);
    dictation->addRow(QStringLiteral("Capture mode"), m_captureMode);
    m_captureModeHelp = helpLabel(QString(), this);
    m_captureModeHelp->setAccessibleName(QStringLiteral("Capture mode help"));
    addUnlabelled(dictation, m_captureModeHelp);
    m_trailingSpace = new QCheckBox(QStringLiteral("Append a trailing space after each dictation"), this);
    dictation->addRow(m_trailingSpace);

    // Language
    QFormLayout* language = addSection(QStringLiteral("Language"));
    m_language = new QComboBox(this);
    m_language->setAccessibleName(QStringLiteral("Dictation language"));
    m_language->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    m_language->setMinimumContentsLength(12);
    language->addRow(QStringLiteral("Dictation language"), m_language);
    m_modelStatus = helpLabel(QString(), this);
    m_modelStatus->setAccessibleName(QStringLiteral("Model status"));
    addUnlabelled(language, m_modelStatus);
    m_languageHelp = helpLabel(languageHelp, this);
    addUnlabelled(language, m_languageHelp);

    // Speech engine
    m_speechEngine = new SpeechEngineSection(controller, addSection(QStringLiteral("Speech engine")), this);

    // Cleanup
    QFormLayout* cleanup = addSection(QStringLiteral("Cleanup"));
    m_cleanup = new QCheckBox(QStringLiteral("Clean up transcripts"), this);
    cleanup->addRow(m_cleanup);
    cleanup->addRow(helpLabel(cleanupHelp, this));

    // Startup
    QFormLayout* startup = addSection(QStringLiteral("Startup"));
    m_launchAtLogin = new QCheckBox(QStringLiteral("Launch Murmurly at login"), this);
    startup->addRow(m_launchAtLogin);
    m_noTrayNote = helpLabel(noTrayNote, this);
    m_noTrayNote->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_noTrayNote->setVisible(false);
    startup->addRow(m_noTrayNote);

    // Microphone
    QFormLayout* microphone = addSection(QStringLiteral("Microphone"));
    m_currentInput = new QLabel(this);
    m_currentInput->setTextFormat(Qt::PlainText);
    m_currentInput->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_currentInput->setAccessibleName(QStringLiteral("Current input"));
    microphone->addRow(QStringLiteral("Current input"), m_currentInput);

    layout->addStretch(1);
    alignLabelColumns();

    connect(m_captureMode, &QComboBox::activated, this, [this](int index) {
        if (index >= 0 && index < static_cast<int>(CaptureModes::allCases.size()))
            m_controller.setCaptureMode(CaptureModes::allCases.at(static_cast<std::size_t>(index)));
    });
    connect(m_language, &QComboBox::activated, this, [this](int index) {
        const QString identifier = m_language->itemData(index).toString();
        if (!identifier.isEmpty()) m_controller.setLocale(identifier);
    });
    connect(m_trailingSpace, &QCheckBox::clicked, &switches, &PreferenceSwitches::setTrailingSpace);
    connect(m_cleanup, &QCheckBox::clicked, &switches, &PreferenceSwitches::setCleanupEnabled);
    connect(m_launchAtLogin, &QCheckBox::clicked, this, [this](bool checked) {
        m_controller.setLaunchAtLogin(checked);
        // A failed change leaves the value as it was, without a change to announce.
        updateLaunchAtLogin();
    });

    connect(&controller, &AppController::captureModeChanged, this, &GeneralTab::updateCaptureMode);
    connect(&controller, &AppController::supportedLocalesChanged, this, &GeneralTab::updateLanguages);
    connect(&controller, &AppController::dictationLocaleIDChanged, this,
            &GeneralTab::updateLanguageSelection);
    connect(&controller, &AppController::modelStatusChanged, this, &GeneralTab::updateModelStatus);
    connect(&controller, &AppController::launchAtLoginChanged, this, &GeneralTab::updateLaunchAtLogin);
    connect(&switches, &PreferenceSwitches::cleanupEnabledChanged, this, &GeneralTab::updateSwitches);
    connect(&switches, &PreferenceSwitches::trailingSpaceChanged, this, &GeneralTab::updateSwitches);

    updateCaptureMode();
    updateLanguages();
    updateModelStatus();
    updateSwitches();
    updateLaunchAtLogin();
    refreshCurrentInput();
}

void GeneralTab::setTriggerNote(const QString& note) {
    m_triggerNote->setText(note);
    m_triggerNote->setVisible(!note.isEmpty());
}

void GeneralTab::setNoTrayNoteShown(bool shown) {
    m_noTrayNote->setVisible(shown);
}

QFormLayout* GeneralTab::addSection(const QString& title) {
    auto* group = new QGroupBox(title, this);
    auto* form = new QFormLayout(group);
    SettingsLayout::applyFormStyle(form);
    static_cast<QVBoxLayout*>(layout())->addWidget(group);
    m_forms.append(form);
    return form;
}

void GeneralTab::alignLabelColumns() {
    // Each section is its own form; giving their label columns one width lines the fields up.
    int width = 0;
    for (QFormLayout* form : m_forms)
        for (int row = 0; row < form->rowCount(); ++row)
            if (QLayoutItem* item = form->itemAt(row, QFormLayout::LabelRole); item && item->widget())
                width = std::max(width, item->widget()->sizeHint().width());
    for (QFormLayout* form : m_forms)
        for (int row = 0; row < form->rowCount(); ++row)
            if (QLayoutItem* item = form->itemAt(row, QFormLayout::LabelRole); item && item->widget())
                item->widget()->setMinimumWidth(width);
}

void GeneralTab::refreshCurrentInput() {
    const std::optional<QString> name = m_inputName.currentInputName();
    m_currentInput->setText(name && !name->isEmpty() ? *name : noMicrophone);
}

void GeneralTab::showEvent(QShowEvent* event) {
    refreshCurrentInput();
    updateSwitches();
    QWidget::showEvent(event);
}

void GeneralTab::updateCaptureMode() {
    const CaptureMode mode = m_controller.captureMode();
    const auto it = std::find(CaptureModes::allCases.begin(), CaptureModes::allCases.end(), mode);
    m_captureMode->setCurrentIndex(static_cast<int>(it - CaptureModes::allCases.begin()));
    m_captureModeHelp->setText(CaptureModes::helpText(mode));
}

void GeneralTab::updateLanguages() {
    m_language->clear();
    for (const LocaleOption& option : LocaleOptions::from(m_controller.supportedLocales()))
        m_language->addItem(option.displayName, option.identifier);
    updateLanguageSelection();
}

void GeneralTab::updateLanguageSelection() {
    m_language->setCurrentIndex(m_language->findData(bcp47Identifier(m_controller.dictationLocaleID())));
}

void GeneralTab::updateModelStatus() {
    m_modelStatus->setText(m_controller.modelStatus().menuLabel());
}

void GeneralTab::updateSwitches() {
    const PreferenceSwitches& switches = PreferenceSwitches::of(m_controller);
    m_trailingSpace->setChecked(switches.trailingSpace());
    m_cleanup->setChecked(switches.cleanupEnabled());
}

void GeneralTab::updateLaunchAtLogin() {
    m_launchAtLogin->setChecked(m_controller.launchAtLogin());
}

} // namespace murmurly
