#include "app/TraylessNotices.h"

#include "app/MenuContent.h"
#include "app/Notifications.h"
#include "core/AppController.h"
#include "core/Defaults.h"
#include "core/Log.h"

namespace murmurly {

TraylessNotices::TraylessNotices(AppController& controller, Notifications& notifications,
                                 std::function<bool()> trayShown, QObject* parent)
    : QObject(parent)
    , m_controller(controller)
    , m_notifications(notifications)
    , m_trayShown(std::move(trayShown))
    , m_modelFailed(controller.modelStatus().kind == ModelStatus::Kind::failed) {
    m_send.setSingleShot(true);
    m_send.setInterval(0);
    connect(&m_send, &QTimer::timeout, this, &TraylessNotices::sendPending);
    // The recording notice waits for the next turn of the event loop: asking whether a tray is
    // shown must not delay the start of a recording.
    m_recordingCheck.setSingleShot(true);
    m_recordingCheck.setInterval(0);
    connect(&m_recordingCheck, &QTimer::timeout, this, &TraylessNotices::updateRecordingNotice);
    connect(&controller, &AppController::modelStatusChanged, this, &TraylessNotices::modelStatusChanged);
    connect(&controller, &AppController::lastErrorChanged, this, &TraylessNotices::lastErrorChanged);
    connect(&controller, &AppController::stateChanged, &m_recordingCheck, qOverload<>(&QTimer::start));
}

TraylessNotices::~TraylessNotices() = default;

QString TraylessNotices::runningNotice(const QString& triggerName) {
    return QStringLiteral("Murmurly is running. Hold ") + triggerName + QStringLiteral(" to dictate.");
}

void TraylessNotices::programStarted() {
    tellProblemsSoFar();
    if (m_controller.defaults().boolValue(runningNoticeShownKey).value_or(false) || m_trayShown()) return;
    qCInfo(lcApp, "No tray on this desktop: telling the user through a notification that Murmurly runs");
    Defaults& defaults = m_controller.defaults();
    m_notifications.show(Notifications::Slot::message, runningNotice(m_controller.triggerName()),
                         [&defaults] { defaults.setBool(runningNoticeShownKey, true); });
}

void TraylessNotices::tellProblemsSoFar() {
    // A model check or a trigger listener can fail while the program is still being built, before
    // anything here could hear of it.
    const ModelStatus& status = m_controller.modelStatus();
    if (status.kind == ModelStatus::Kind::failed) m_pendingModelLine = status.menuLabel();
    if (const std::optional<QString>& error = m_controller.lastError())
        m_pendingErrorLine = MenuContent::errorLine(*error);
    if (!m_pendingModelLine.isEmpty() || !m_pendingErrorLine.isEmpty()) m_send.start();
}

void TraylessNotices::modelStatusChanged() {
    const ModelStatus& status = m_controller.modelStatus();
    const bool failed = status.kind == ModelStatus::Kind::failed;
    if (failed && !m_modelFailed) {
        m_pendingModelLine = status.menuLabel();
        m_send.start();
    }
    m_modelFailed = failed;
}

void TraylessNotices::lastErrorChanged() {
    const std::optional<QString>& error = m_controller.lastError();
    if (!error) return;
    m_pendingErrorLine = MenuContent::errorLine(*error);
    m_send.start();
}

void TraylessNotices::sendPending() {
    QStringList lines;
    // In the menu's order: the model line above the error line.
    if (!m_pendingModelLine.isEmpty()) lines << m_pendingModelLine;
    if (!m_pendingErrorLine.isEmpty()) lines << m_pendingErrorLine;
    m_pendingModelLine.clear();
    m_pendingErrorLine.clear();
    if (lines.isEmpty() || m_trayShown()) return;
    m_notifications.show(Notifications::Slot::message, lines.join(QLatin1Char('\n')));
}

void TraylessNotices::updateRecordingNotice() {
    if (m_controller.state() == DictationState::recording) {
        if (m_recordingShown || m_trayShown()) return;
        m_recordingShown = true;
        m_notifications.show(Notifications::Slot::recording, m_controller.stateLabel());
        return;
    }
    if (!m_recordingShown) return;
    m_recordingShown = false;
    m_notifications.withdraw(Notifications::Slot::recording);
}

} // namespace murmurly
