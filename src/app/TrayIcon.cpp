#include "app/TrayIcon.h"

#include "core/AppController.h"
#include "settings/UiResources.h"

#include <QCursor>
#include <QMenu>
#include <QSystemTrayIcon>

#include <array>
#include <cmath>
#include <numbers>

namespace murmurly {

namespace {

QString iconName(DictationState state) {
    switch (state) {
    case DictationState::idle:
        return QStringLiteral("tray-idle");
    case DictationState::recording:
        return QStringLiteral("tray-recording");
    case DictationState::transcribing:
        return QStringLiteral("tray-transcribing");
    case DictationState::cleaning:
        return QStringLiteral("tray-cleaning");
    case DictationState::inserting:
        return QStringLiteral("tray-inserting");
    }
    return QStringLiteral("tray-idle");
}

// Full strength at frame 0, faintest half-way through, back again: a slow breath.
qreal pulseOpacity(int frame) {
    const double phase = 2 * std::numbers::pi * frame / TrayIcon::pulseFrameCount;
    return 0.35 + 0.65 * (0.5 + 0.5 * std::cos(phase));
}

} // namespace

TrayIcon::TrayIcon(AppController& controller, QMenu* menu, QObject* parent)
    : QObject(parent)
    , m_controller(controller)
    , m_menu(menu)
    , m_tray(new QSystemTrayIcon(this)) {
    m_tray->setContextMenu(menu);
    m_pulse.setInterval(pulseFrameInterval);
    connect(&m_pulse, &QTimer::timeout, this, &TrayIcon::nextPulseFrame);
    connect(&controller, &AppController::stateChanged, this, &TrayIcon::updateState);
    connect(&controller, &AppController::stateLabelChanged, this, &TrayIcon::updateState);
    // Panels that send a plain click rather than asking for the context menu get the menu too.
    connect(m_tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger && m_menu && !m_menu->isVisible())
            m_menu->popup(QCursor::pos());
    });
    updateState();
}

TrayIcon::~TrayIcon() = default;

void TrayIcon::show() {
    m_tray->show();
}

QIcon TrayIcon::stateIcon(DictationState state) {
    return UiResources::icon(iconName(state));
}

QIcon TrayIcon::pulseFrame(int frame) {
    frame = ((frame % pulseFrameCount) + pulseFrameCount) % pulseFrameCount;
    return UiResources::icon(iconName(DictationState::recording), pulseOpacity(frame));
}

const QIcon& TrayIcon::cachedStateIcon(DictationState state) {
    QIcon& icon = m_stateIcons.at(static_cast<std::size_t>(state));
    if (icon.isNull()) icon = stateIcon(state);
    return icon;
}

const QIcon& TrayIcon::cachedPulseFrame(int frame) {
    QIcon& icon = m_pulseFrames.at(static_cast<std::size_t>(frame));
    if (icon.isNull()) icon = pulseFrame(frame);
    return icon;
}

bool TrayIcon::isShownOnThisDesktop() {
    return QSystemTrayIcon::isSystemTrayAvailable();
}

void TrayIcon::updateState() {
    const DictationState state = m_controller.state();
    m_tray->setToolTip(QStringLiteral("Murmurly \u2014 ") + m_controller.stateLabel());
    if (state == DictationState::recording) {
        if (!m_pulse.isActive()) {
            m_frame = 0;
            m_tray->setIcon(cachedPulseFrame(0));
            m_pulse.start();
        }
        return;
    }
    m_pulse.stop();
    m_frame = 0;
    m_tray->setIcon(cachedStateIcon(state));
}

void TrayIcon::nextPulseFrame() {
    m_frame = (m_frame + 1) % pulseFrameCount;
    m_tray->setIcon(cachedPulseFrame(m_frame));
}

} // namespace murmurly
