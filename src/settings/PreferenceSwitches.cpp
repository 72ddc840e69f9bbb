#include "settings/PreferenceSwitches.h"

#include "core/AppController.h"
#include "core/Defaults.h"

namespace murmurly {

namespace {

const QString instanceName = QStringLiteral("murmurly.PreferenceSwitches");

} // namespace

PreferenceSwitches::PreferenceSwitches(AppController& controller)
    : QObject(&controller)
    , m_controller(controller) {
    setObjectName(instanceName);
}

PreferenceSwitches& PreferenceSwitches::of(AppController& controller) {
    if (auto* existing = controller.findChild<PreferenceSwitches*>(instanceName, Qt::FindDirectChildrenOnly))
        return *existing;
    return *new PreferenceSwitches(controller);
}

bool PreferenceSwitches::cleanupEnabled() const {
    return m_controller.defaults().boolValue(AppController::cleanupEnabledKey).value_or(false);
}

void PreferenceSwitches::setCleanupEnabled(bool enabled) {
    m_controller.defaults().setBool(AppController::cleanupEnabledKey, enabled);
    emit cleanupEnabledChanged(enabled);
}

bool PreferenceSwitches::trailingSpace() const {
    return m_controller.defaults().boolValue(AppController::trailingSpaceKey).value_or(true);
}

void PreferenceSwitches::setTrailingSpace(bool enabled) {
    m_controller.defaults().setBool(AppController::trailingSpaceKey, enabled);
    emit trailingSpaceChanged(enabled);
}

} // namespace murmurly
