#include "settings/HotkeyRecorderRow.h"

#include "core/AppController.h"
#include "settings/HotkeyRecorder.h"
#include "settings/SettingsText.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace murmurly {

HotkeyRecorderRow::HotkeyRecorderRow(AppController& controller, const KeyEventTranslator& translator,
                                     QWidget* parent)
    : QWidget(parent)
    , m_controller(controller)
    , m_recorder(new HotkeyRecorder(controller, translator, this))
    , m_trigger(new QLabel(this))
    , m_button(new QPushButton(this))
    , m_warning(new QLabel(HotkeyRecorder::typeableWarning)) {
    m_trigger->setTextFormat(Qt::PlainText);
    m_trigger->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    // The recording prompt is longer than a key's name; in a narrow window it takes two lines.
    m_trigger->setWordWrap(true);
    m_trigger->setAccessibleName(QStringLiteral("Current trigger"));
    m_button->setAutoDefault(false);
    m_warning->setTextFormat(Qt::PlainText);
    SettingsText::makeCaption(m_warning);
    m_warning->setAccessibleName(QStringLiteral("Trigger warning"));

    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(m_trigger, 1);
    row->addWidget(m_button);

    m_trigger->installEventFilter(this);
    connect(m_button, &QPushButton::clicked, m_recorder, &HotkeyRecorder::toggle);
    connect(m_recorder, &HotkeyRecorder::recordingChanged, this, &HotkeyRecorderRow::update);
    connect(m_recorder, &HotkeyRecorder::showTypeableWarningChanged, this, &HotkeyRecorderRow::update);
    connect(&controller, &AppController::hotkeyBindingChanged, this, &HotkeyRecorderRow::update);
    update();
}

HotkeyRecorderRow::~HotkeyRecorderRow() {
    // The warning is placed by the form that holds the row; when it never was, it is ours.
    if (!m_warning->parent()) delete m_warning;
}

void HotkeyRecorderRow::hideEvent(QHideEvent* event) {
    m_recorder->cancel();
    QWidget::hideEvent(event);
}

bool HotkeyRecorderRow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_trigger && event->type() == QEvent::Resize) fitTriggerHeight();
    return QWidget::eventFilter(watched, event);
}

void HotkeyRecorderRow::fitTriggerHeight() {
    const int needed = m_trigger->heightForWidth(m_trigger->width());
    if (needed > 0 && needed != m_trigger->minimumHeight()) m_trigger->setMinimumHeight(needed);
}

void HotkeyRecorderRow::update() {
    const bool recording = m_recorder->isRecording();
    m_trigger->setText(recording ? promptText : m_controller.triggerName());
    m_trigger->setForegroundRole(recording ? QPalette::PlaceholderText : QPalette::WindowText);
    m_button->setText(recording ? QStringLiteral("Cancel") : QStringLiteral("Change\u2026"));
    m_button->setAccessibleName(recording ? QStringLiteral("Cancel recording the trigger")
                                          : QStringLiteral("Change trigger"));
    m_warning->setVisible(m_recorder->showTypeableWarning());
    fitTriggerHeight();
}

} // namespace murmurly
