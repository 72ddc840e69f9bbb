#pragma once

#include "core/DictationState.h"

#include <QIcon>
#include <QObject>
#include <QTimer>

#include <array>
#include <chrono>

class QMenu;
class QSystemTrayIcon;

namespace murmurly {

class AppController;

// The program's icon in the panel's tray, with the menu. The icon shows the dictation state and
// pulses while recording; the pulse timer runs only then, so an idle program wakes for nothing.
class TrayIcon : public QObject {
    Q_OBJECT

public:
    static constexpr int pulseFrameCount = 8;
    static constexpr std::chrono::milliseconds pulseFrameInterval{150};

    // `menu` stays the caller's; it must outlive the icon.
    TrayIcon(AppController& controller, QMenu* menu, QObject* parent = nullptr);
    ~TrayIcon() override;

    void show();
    QSystemTrayIcon& systemTrayIcon() const { return *m_tray; }

    // The icon of a state; for recording, also the first (full-strength) frame of the pulse.
    static QIcon stateIcon(DictationState state);
    // One frame of the recording pulse: the recording icon faded in and out.
    static QIcon pulseFrame(int frame);

    bool isPulsing() const { return m_pulse.isActive(); }
    int currentPulseFrame() const { return m_frame; }

    // Whether this desktop shows tray icons now (a panel may come and go).
    static bool isShownOnThisDesktop();
    // Without a tray on this desktop the menu cannot be reached, so the program opens its
    // settings window at start instead.
    static bool shouldOpenSettingsAtStart() { return !isShownOnThisDesktop(); }

private:
    void updateState();
    void nextPulseFrame();
    // Drawn once each, on first use.
    const QIcon& cachedStateIcon(DictationState state);
    const QIcon& cachedPulseFrame(int frame);

    AppController& m_controller;
    QMenu* m_menu;
    QSystemTrayIcon* m_tray;
    std::array<QIcon, 5> m_stateIcons;
    std::array<QIcon, pulseFrameCount> m_pulseFrames;
    QTimer m_pulse;
    int m_frame = 0;
};

} // namespace murmurly
