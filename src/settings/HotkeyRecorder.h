#pragma once

#include "hotkey/HotkeyBinding.h"

#include <QObject>
#include <QPointer>

namespace murmurly {

class AppController;
class KeyEventTranslator;

// Records a new trigger by reading the next key or modifier pressed in the program's own
// windows. While it records, the system-wide monitor is stopped, so pressing the current trigger
// does not start a dictation; Esc cancels, and the event that completes a recording is consumed.
class HotkeyRecorder : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool recording READ isRecording NOTIFY recordingChanged)
    Q_PROPERTY(bool showTypeableWarning READ showTypeableWarning NOTIFY showTypeableWarningChanged)

public:
    static inline const QString typeableWarning = QStringLiteral(
        "This key normally types a character; it will be intercepted while Murmurly is running. A "
        "modifier (like Right Alt) or a function key is usually a better choice.");

    HotkeyRecorder(AppController& controller, const KeyEventTranslator& translator,
                   QObject* parent = nullptr);
    ~HotkeyRecorder() override;

    bool isRecording() const { return m_recording; }
    bool showTypeableWarning() const { return m_showTypeableWarning; }

    // Stops the monitor and waits for a key.
    void start();
    // Stops waiting; the monitor runs again with the unchanged trigger.
    void cancel();
    // Start when idle, cancel when recording: the row's one button.
    void toggle();

signals:
    void recordingChanged(bool recording);
    void showTypeableWarningChanged(bool shown);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void finish(const HotkeyBinding& binding);
    void tearDown();
    void setShowTypeableWarning(bool shown);

    QPointer<AppController> m_controller; // a window may outlive the controller at exit
    const KeyEventTranslator& m_translator;
    bool m_recording = false;
    bool m_filterInstalled = false;
    bool m_showTypeableWarning = false;
};

} // namespace murmurly
