#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>

namespace murmurly {

class AppController;
class Notifications;
struct HotkeyBinding;

// On a desktop that shows no tray, the menu cannot be seen, so what it would tell the user comes
// as desktop notifications instead: once per user that the program runs and how to dictate; every
// new problem and a model that failed, in the menu's own words; and a quiet notice while
// recording. Whether a tray is shown is asked each time, so a panel that appears later silences
// this. With a tray shown, nothing is sent.
class TraylessNotices : public QObject {
    Q_OBJECT

public:
    // Set once the first-start notice reached the desktop; it is shown once per user.
    static inline const QString runningNoticeShownKey = QStringLiteral("didShowRunningNotice");

    TraylessNotices(AppController& controller, Notifications& notifications, std::function<bool()> trayShown,
                    QObject* parent = nullptr);
    ~TraylessNotices() override;

    // The program is up: the first-start notice, unless this user has had it, then any problem the
    // start-up already met (it replaces the first-start notice).
    void programStarted();

    // "Murmurly is running. Hold Right Alt to dictate."
    static QString runningNotice(const QString& triggerName);

private:
    void tellProblemsSoFar();
    void modelStatusChanged();
    void lastErrorChanged();
    // Shows the recording notice while the controller records, and withdraws it after.
    void updateRecordingNotice();
    // Sends the lines gathered in this turn of the event loop as one notice.
    void sendPending();

    AppController& m_controller;
    Notifications& m_notifications;
    std::function<bool()> m_trayShown;
    QTimer m_send;           // zero interval: a model failure and its error line make one notice
    QTimer m_recordingCheck; // zero interval
    QString m_pendingModelLine;
    QString m_pendingErrorLine;
    bool m_modelFailed = false;
    bool m_recordingShown = false;
};

} // namespace murmurly
