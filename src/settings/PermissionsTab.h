#pragma once

#include <QList>
#include <QStringList>
#include <QWidget>

class QLabel;
class QPushButton;

namespace murmurly {

class AppController;

// The Permissions tab: whether Murmurly may record the microphone and watch the keyboard, with a
// button per permission that asks for it while it is missing and opens the desktop's settings
// once it is granted. It follows the controller, whose poll notices changes made elsewhere
// within a few seconds.
class PermissionsTab : public QWidget {
    Q_OBJECT

public:
    static inline const QString microphoneDetail =
        QStringLiteral("Required to capture your voice while you dictate.");
    static inline const QString keyboardDetail =
        QStringLiteral("Required for the global push-to-talk key and for typing text into other apps.");
    static inline const QString footer =
        QStringLiteral("Status here updates automatically within a few seconds.");

    // How the session does one of the desktop services the program needs, shown as a row of its
    // own under the permissions. The session's choice is made at start-up; what the desktop
    // answers to it (a shortcut bound or refused) may change the row later.
    struct ServiceRow {
        QString title;
        QString detail;
        bool working = false;
    };

    explicit PermissionsTab(AppController& controller, QWidget* parent = nullptr);
    PermissionsTab(AppController& controller, const QList<ServiceRow>& serviceRows,
                   QWidget* parent = nullptr);

    // The status signs of the service rows, in order.
    const QList<QLabel*>& serviceStatuses() const { return m_serviceStatuses; }
    const QList<QLabel*>& serviceDetails() const { return m_serviceDetails; }
    // Shows `row` in place of the service row at `index`; its title stays.
    void setServiceRow(qsizetype index, const ServiceRow& row);

    QLabel* microphoneStatus() const { return m_microphoneStatus; }
    QPushButton* microphoneButton() const { return m_microphoneButton; }
    QLabel* keyboardStatus() const { return m_keyboardStatus; }
    QPushButton* keyboardButton() const { return m_keyboardButton; }

private:
    void update();
    void microphoneAction();
    void keyboardAction();

    AppController& m_controller;
    QLabel* m_microphoneStatus = nullptr;
    QPushButton* m_microphoneButton = nullptr;
    QLabel* m_keyboardStatus = nullptr;
    QPushButton* m_keyboardButton = nullptr;
    QList<QLabel*> m_serviceStatuses;
    QList<QLabel*> m_serviceDetails;
    QStringList m_serviceTitles;
};

} // namespace murmurly
