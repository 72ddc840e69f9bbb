#pragma once

#include <QObject>

namespace murmurly {

class AppController;

// The two dictation switches that both the tray menu and the General tab edit: cleanup on or off,
// and the trailing space. Values live in the controller's preferences and are read from there on
// every access; writing through this object tells every view of the same controller, so the
// menu and the tab never disagree. One instance per controller, owned by it.
class PreferenceSwitches : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool cleanupEnabled READ cleanupEnabled WRITE setCleanupEnabled NOTIFY cleanupEnabledChanged)
    Q_PROPERTY(bool trailingSpace READ trailingSpace WRITE setTrailingSpace NOTIFY trailingSpaceChanged)

public:
    // The controller's instance, made on first use.
    static PreferenceSwitches& of(AppController& controller);

    // Off when never set.
    bool cleanupEnabled() const;
    void setCleanupEnabled(bool enabled);
    // On when never set (the controller registers that default).
    bool trailingSpace() const;
    void setTrailingSpace(bool enabled);

signals:
    void cleanupEnabledChanged(bool enabled);
    void trailingSpaceChanged(bool enabled);

private:
    explicit PreferenceSwitches(AppController& controller);

    AppController& m_controller;
};

} // namespace murmurly
