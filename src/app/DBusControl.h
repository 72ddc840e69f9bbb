#pragma once

#include "core/DictationState.h"
#include "core/ModelStatus.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

namespace murmurly {

class AppController;

// Remote control of the running program on the session bus, for desktops without global keys
// (Wayland compositors bind shortcuts to `murmurly --press` …) and for scripts:
//
//   object /com/qv/Murmurly, interface com.qv.Murmurly
//   methods Press, Release, Toggle, Cancel, OpenSettings
//   read-only properties State ("idle", "recording", "transcribing", "cleaning", "inserting"),
//   ModelStatus ("checking", "downloading", "ready", "failed") and LastError (the text of the
//   last problem, as the tray menu shows it; empty while there was none), all announced with
//   org.freedesktop.DBus.Properties.PropertiesChanged when they change.
//
// Calls arrive on the main thread, like key edges from the hotkey monitor.
class DBusControl : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.qv.Murmurly")
    Q_PROPERTY(QString State READ state)
    Q_PROPERTY(QString ModelStatus READ modelStatus)
    Q_PROPERTY(QString LastError READ lastError)

public:
    static inline const QString serviceName = QStringLiteral("com.qv.Murmurly");
    static inline const QString objectPath = QStringLiteral("/com/qv/Murmurly");
    static inline const QString interfaceName = QStringLiteral("com.qv.Murmurly");

    // `openSettings` is what the OpenSettings method does.
    DBusControl(AppController& controller, std::function<void()> openSettings, QObject* parent = nullptr);
    ~DBusControl() override;

    // Puts the object on `bus`; false when the path is taken or the bus is not connected.
    bool registerOn(QDBusConnection bus);

    QString state() const;
    QString modelStatus() const;
    QString lastError() const;

    static QString stateName(DictationState state);
    static QString modelStatusName(const ModelStatus& status);

public slots:
    Q_SCRIPTABLE void Press();
    Q_SCRIPTABLE void Release();
    Q_SCRIPTABLE void Toggle();
    Q_SCRIPTABLE void Cancel();
    Q_SCRIPTABLE void OpenSettings();

private:
    void announce(const QString& property, const QString& value);

    AppController& m_controller;
    std::function<void()> m_openSettings;
    std::optional<QDBusConnection> m_bus;
};

} // namespace murmurly
