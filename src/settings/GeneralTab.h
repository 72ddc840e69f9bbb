#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;

namespace murmurly {

class AppController;
class HotkeyRecorderRow;
class InputDeviceName;
class KeyEventTranslator;
class SpeechEngineSection;

// The General tab: the trigger, the capture mode, the trailing space, the dictation language, the
// cleanup switch, launch at login and the current microphone. Every control writes through at
// once to the controller or the preferences, and follows them when they change elsewhere.
class GeneralTab : public QWidget {
    Q_OBJECT

public:
    static inline const QString languageHelp = QStringLiteral(
        "Selecting a language that isn't installed downloads its model on first use (see model status "
        "in the menu).");
    static inline const QString cleanupHelp = QStringLiteral(
        "Off by default. Choose a provider and configure it in the Cleanup tab. Any failure falls back to "
        "inserting the raw transcript.");
    static inline const QString noMicrophone = QStringLiteral("No microphone");
    static inline const QString noTrayNote = QStringLiteral(
        "This desktop shows no tray icon, so Murmurly tells you what its menu would through notifications. "
        "To open these settings, run murmurly --settings or start Murmurly again.");

    GeneralTab(AppController& controller, const KeyEventTranslator& translator, InputDeviceName& inputName,
               QWidget* parent = nullptr);

    HotkeyRecorderRow* recorderRow() const { return m_recorder; }
    QComboBox* captureModeBox() const { return m_captureMode; }
    QLabel* captureModeHelp() const { return m_captureModeHelp; }
    QCheckBox* trailingSpaceBox() const { return m_trailingSpace; }
    QComboBox* languageBox() const { return m_language; }
    QLabel* modelStatusLabel() const { return m_modelStatus; }
    QLabel* languageHelpLabel() const { return m_languageHelp; }
    QCheckBox* cleanupBox() const { return m_cleanup; }
    QCheckBox* launchAtLoginBox() const { return m_launchAtLogin; }
    QLabel* noTrayNoteLabel() const { return m_noTrayNote; }
    QLabel* currentInputLabel() const { return m_currentInput; }
    SpeechEngineSection* speechEngineSection() const { return m_speechEngine; }

    // Shows, under the startup switch, how to reach the settings on a desktop without a tray.
    void setNoTrayNoteShown(bool shown);
    // Shows, under the trigger, how the trigger works on this desktop; hidden when empty.
    void setTriggerNote(const QString& note);
    QLabel* triggerNoteLabel() const { return m_triggerNote; }

    // Reads the current input again (also done each time the tab is shown).
    void refreshCurrentInput();

protected:
    void showEvent(QShowEvent* event) override;

private:
    QFormLayout* addSection(const QString& title);
    void updateCaptureMode();
    void updateLanguages();
    void updateLanguageSelection();
    void updateModelStatus();
    void updateSwitches();
    void updateLaunchAtLogin();
    void alignLabelColumns();

    AppController& m_controller;
    InputDeviceName& m_inputName;
    QList<QFormLayout*> m_forms;

    HotkeyRecorderRow* m_recorder = nullptr;
    QComboBox* m_captureMode = nullptr;
    QLabel* m_captureModeHelp = nullptr;
    QCheckBox* m_trailingSpace = nullptr;
    QComboBox* m_language = nullptr;
    QLabel* m_modelStatus = nullptr;
    QLabel* m_languageHelp = nullptr;
    QCheckBox* m_cleanup = nullptr;
    QCheckBox* m_launchAtLogin = nullptr;
    QLabel* m_noTrayNote = nullptr;
    QLabel* m_triggerNote = nullptr;
    QLabel* m_currentInput = nullptr;
    SpeechEngineSection* m_speechEngine = nullptr;
};

} // namespace murmurly
