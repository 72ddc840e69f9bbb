#pragma once

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

    explicit PermissionsTab(AppController& controller, QWidget* parent = nullptr);

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
};

} // namespace murmurly
