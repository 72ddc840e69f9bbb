#include "app/DBusControl.h"

#include "core/AppController.h"

#include <QDBusMessage>
#include <QVariantMap>

namespace murmurly {

DBusControl::DBusControl(AppController& controller, std::function<void()> openSettings, QObject* parent)
    : QObject(parent)
    , m_controller(controller)
    , m_openSettings(std::move(openSettings)) {
    connect(&m_controller, &AppController::stateChanged, this,
            [this](DictationState state) { announce(QStringLiteral("State"), stateName(state)); });
    connect(&m_controller, &AppController::modelStatusChanged, this,
            [this] { announce(QStringLiteral("ModelStatus"), modelStatus()); });
    connect(&m_controller, &AppController::lastErrorChanged, this,
            [this] { announce(QStringLiteral("LastError"), lastError()); });
}

DBusControl::~DBusControl() {
    if (m_bus) m_bus->unregisterObject(objectPath);
}

bool DBusControl::registerOn(QDBusConnection bus) {
    if (!bus.isConnected()) return false;
    if (!bus.registerObject(objectPath, this,
                            QDBusConnection::ExportScriptableSlots | QDBusConnection::ExportAllProperties))
        return false;
    m_bus = bus;
    return true;
}

QString DBusControl::state() const {
    return stateName(m_controller.state());
}

QString DBusControl::modelStatus() const {
    return modelStatusName(m_controller.modelStatus());
}

QString DBusControl::lastError() const {
    return m_controller.lastErrorText();
}

QString DBusControl::stateName(DictationState state) {
    switch (state) {
    case DictationState::idle:
        return QStringLiteral("idle");
    case DictationState::recording:
        return QStringLiteral("recording");
    case DictationState::transcribing:
        return QStringLiteral("transcribing");
    case DictationState::cleaning:
        return QStringLiteral("cleaning");
    case DictationState::inserting:
        return QStringLiteral("inserting");
    }
    return QStringLiteral("idle");
}

QString DBusControl::modelStatusName(const ModelStatus& status) {
    switch (status.kind) {
    case ModelStatus::Kind::checking:
        return QStringLiteral("checking");
    case ModelStatus::Kind::downloading:
        return QStringLiteral("downloading");
    case ModelStatus::Kind::ready:
        return QStringLiteral("ready");
    case ModelStatus::Kind::failed:
        return QStringLiteral("failed");
    }
    return QStringLiteral("checking");
}

void DBusControl::Press() {
    m_controller.pttPressed();
}

void DBusControl::Release() {
    m_controller.pttReleased();
}

void DBusControl::Toggle() {
    m_controller.toggleDictation();
}

void DBusControl::Cancel() {
    m_controller.cancelDictation();
}

void DBusControl::OpenSettings() {
    if (m_openSettings) m_openSettings();
}

void DBusControl::announce(const QString& property, const QString& value) {
    if (!m_bus) return;
    QDBusMessage signal = QDBusMessage::createSignal(
        objectPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("PropertiesChanged"));
    signal << interfaceName << QVariantMap{{property, value}} << QStringList();
    m_bus->send(signal);
}

} // namespace murmurly
