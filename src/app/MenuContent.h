#pragma once

#include <QObject>

#include <memory>

class QAction;
class QMenu;

namespace murmurly {

class AppController;
class CleanupSettings;
class UsageTracker;

// The tray icon's menu: what the controller is doing, the model status, the session's cleanup
// cost and the last problem, the two most used switches, and the ways to the settings window and
// out of the program. It keeps nothing of its own: every item follows the controller, the usage
// tracker and the cleanup settings as they change, and the switches are read from the
// preferences each time the menu opens.
class MenuContent : public QObject {
    Q_OBJECT

public:
    MenuContent(AppController& controller, UsageTracker& usage, CleanupSettings& cleanup,
                QObject* parent = nullptr);
    ~MenuContent() override;

    QMenu* menu() const { return m_menu.get(); }

    // The two actions with shortcuts. A tray menu's shortcuts work only while it is open; adding
    // these actions to the settings window makes Ctrl+comma and Ctrl+Q work there too.
    QAction* settingsAction() const { return m_settings; }
    QAction* quitAction() const { return m_quit; }

    // The line that shows the last problem: a warning sign before the controller's text.
    static QString errorLine(const QString& error);

signals:
    // "Settings…" or the keyboard-access item: the settings window should come to the front.
    void settingsRequested();

private:
    void updateState();
    void updateModel();
    void updateCost();
    void updateError();
    void updateProvider();
    void updateSwitches();
    void updateKeyboardAccess();
    void updateTrigger();
    void checkKeyboardAccess();

    AppController& m_controller;
    UsageTracker& m_usage;
    CleanupSettings& m_cleanup;
    std::unique_ptr<QMenu> m_menu;

    QAction* m_state = nullptr;
    QAction* m_model = nullptr;
    QAction* m_cost = nullptr;
    QAction* m_error = nullptr;
    QAction* m_cleanupSwitch = nullptr;
    QAction* m_provider = nullptr;
    QAction* m_trailingSpaceSwitch = nullptr;
    QAction* m_keyboardAccess = nullptr;
    QAction* m_settings = nullptr;
    QAction* m_trigger = nullptr;
    QAction* m_quit = nullptr;
};

} // namespace murmurly
