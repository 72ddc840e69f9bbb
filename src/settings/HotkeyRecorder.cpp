#include "settings/HotkeyRecorder.h"

#include "core/AppController.h"
#include "hotkey/HotkeyMonitor.h"
#include "hotkey/KeyNames.h"
#include "settings/KeyEventTranslator.h"

#include <QCoreApplication>
#include <QKeyEvent>

namespace murmurly {

HotkeyRecorder::HotkeyRecorder(AppController& controller, const KeyEventTranslator& translator,
                               QObject* parent)
    : QObject(parent)
    , m_controller(&controller)
    , m_translator(translator) {
}

HotkeyRecorder::~HotkeyRecorder() {
    // Never leave the program without its trigger.
    if (m_recording) cancel();
    tearDown();
}

void HotkeyRecorder::start() {
    if (m_recording) return;
    setShowTypeableWarning(false);
    if (!m_controller) return;
    m_recording = true;
    m_controller->hotkeyMonitor().stop();
    // Application-wide, so the key is read whichever of the program's windows has the focus.
    QCoreApplication::instance()->installEventFilter(this);
    m_filterInstalled = true;
    emit recordingChanged(true);
}

void HotkeyRecorder::cancel() {
    if (!m_recording) return;
    tearDown();
    if (m_controller) m_controller->endHotkeyRecording(std::nullopt);
}

void HotkeyRecorder::toggle() {
    if (m_recording)
        cancel();
    else
        start();
}

bool HotkeyRecorder::eventFilter(QObject* watched, QEvent* event) {
    if (!m_recording) return QObject::eventFilter(watched, event);
    switch (event->type()) {
    case QEvent::ShortcutOverride:
        // Claims every key while recording, so that no shortcut fires instead of the key press
        // arriving here.
        event->accept();
        return true;
    case QEvent::KeyPress:
    case QEvent::KeyRelease:
        break;
    default:
        return QObject::eventFilter(watched, event);
    }
    // A key event passed on reaches the filter again for each parent it propagates to; the
    // decision is the same each time.
    const auto* keyEvent = static_cast<const QKeyEvent*>(event);
    if (event->type() == QEvent::KeyPress && keyEvent->key() == Qt::Key_Escape) {
        cancel();
        return true;
    }
    const std::optional<KeyEvent> translated = m_translator.translate(*keyEvent);
    if (!translated) return false;
    const std::optional<HotkeyBinding> binding = HotkeyBinding::from(*translated, KeyNames::platform());
    if (!binding) return false; // a modifier's release, Caps Lock: recording goes on
    finish(*binding);
    return true;
}

void HotkeyRecorder::finish(const HotkeyBinding& binding) {
    tearDown();
    if (m_controller) m_controller->endHotkeyRecording(binding);
    setShowTypeableWarning(binding.isTypeable());
}

void HotkeyRecorder::tearDown() {
    const bool wasRecording = m_recording;
    m_recording = false;
    if (m_filterInstalled) {
        QCoreApplication::instance()->removeEventFilter(this);
        m_filterInstalled = false;
    }
    if (wasRecording) emit recordingChanged(false);
}

void HotkeyRecorder::setShowTypeableWarning(bool shown) {
    if (m_showTypeableWarning == shown) return;
    m_showTypeableWarning = shown;
    emit showTypeableWarningChanged(shown);
}

} // namespace murmurly
