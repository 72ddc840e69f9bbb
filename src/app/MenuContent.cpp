#include "app/MenuContent.h"

#include "cleanup/CleanupProvider.h"
#include "cleanup/CleanupSettings.h"
#include "core/AppController.h"
#include "records/UsageTracker.h"
#include "settings/PreferenceSwitches.h"

#include <QAction>
#include <QCoreApplication>
#include <QKeySequence>
#include <QMenu>

namespace murmurly {

namespace {

const QString warningSign = QStringLiteral("\u26A0\uFE0E ");

// Menu texts treat "&" as a mnemonic marker and a tab as the start of a shortcut; texts that come
// from outside (error messages, key names) are shown as they are.
QString literal(QString text) {
    text.replace(QLatin1Char('&'), QStringLiteral("&&"));
    text.replace(QLatin1Char('\t'), QLatin1Char(' '));
    return text;
}

QAction* addText(QMenu& menu) {
    QAction* action = menu.addAction(QString());
    action->setEnabled(false);
    return action;
}

} // namespace

MenuContent::MenuContent(AppController& controller, UsageTracker& usage, CleanupSettings& cleanup,
                         QObject* parent)
    : QObject(parent)
    , m_controller(controller)
    , m_usage(usage)
    , m_cleanup(cleanup)
    , m_menu(std::make_unique<QMenu>()) {
    QMenu& menu = *m_menu;
    menu.setTitle(QStringLiteral("Murmurly"));
    PreferenceSwitches& switches = PreferenceSwitches::of(controller);

    m_state = addText(menu);
    m_model = addText(menu);
    m_cost = addText(menu);
    m_error = addText(menu);
    menu.addSeparator();
    m_cleanupSwitch = menu.addAction(QStringLiteral("Clean Up Transcripts"));
    m_cleanupSwitch->setCheckable(true);
    m_provider = addText(menu);
    m_trailingSpaceSwitch = menu.addAction(QStringLiteral("Append Trailing Space"));
    m_trailingSpaceSwitch->setCheckable(true);
    menu.addSeparator();
    m_keyboardAccess = menu.addAction(warningSign + QStringLiteral("Check Keyboard Access\u2026"));
    m_settings = menu.addAction(QStringLiteral("Settings\u2026"));
    m_settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    menu.addSeparator();
    m_trigger = addText(menu);
    menu.addSeparator();
    m_quit = menu.addAction(QStringLiteral("Quit Murmurly"));
    m_quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));

    connect(m_cleanupSwitch, &QAction::triggered, &switches, &PreferenceSwitches::setCleanupEnabled);
    connect(m_trailingSpaceSwitch, &QAction::triggered, &switches, &PreferenceSwitches::setTrailingSpace);
    connect(m_keyboardAccess, &QAction::triggered, this, &MenuContent::checkKeyboardAccess);
    connect(m_settings, &QAction::triggered, this, &MenuContent::settingsRequested);
    connect(m_quit, &QAction::triggered, this, [] { QCoreApplication::quit(); });

    connect(&controller, &AppController::stateLabelChanged, this, &MenuContent::updateState);
    connect(&controller, &AppController::modelStatusChanged, this, &MenuContent::updateModel);
    connect(&controller, &AppController::lastErrorChanged, this, &MenuContent::updateError);
    connect(&controller, &AppController::axTrustedChanged, this, &MenuContent::updateKeyboardAccess);
    connect(&controller, &AppController::hotkeyBindingChanged, this, &MenuContent::updateTrigger);
    connect(&usage, &UsageTracker::sessionChanged, this, &MenuContent::updateCost);
    connect(&cleanup, &CleanupSettings::providerChanged, this, &MenuContent::updateProvider);
    connect(&switches, &PreferenceSwitches::cleanupEnabledChanged, this, &MenuContent::updateSwitches);
    connect(&switches, &PreferenceSwitches::trailingSpaceChanged, this, &MenuContent::updateSwitches);
    // The switches' keys may also be written by something that does not announce it.
    connect(&menu, &QMenu::aboutToShow, this, &MenuContent::updateSwitches);

    updateState();
    updateModel();
    updateCost();
    updateError();
    updateProvider();
    updateSwitches();
    updateKeyboardAccess();
    updateTrigger();
}

MenuContent::~MenuContent() = default;

void MenuContent::updateState() {
    m_state->setText(literal(m_controller.stateLabel()));
}

void MenuContent::updateModel() {
    m_model->setText(literal(m_controller.modelStatus().menuLabel()));
}

void MenuContent::updateCost() {
    const double cost = m_usage.sessionCost();
    m_cost->setText(literal(QString::asprintf("Session cost: $%.4f", cost)));
    m_cost->setVisible(cost > 0);
}

QString MenuContent::errorLine(const QString& error) {
    return warningSign + error;
}

void MenuContent::updateError() {
    const std::optional<QString>& error = m_controller.lastError();
    m_error->setText(error ? literal(errorLine(*error)) : QString());
    m_error->setVisible(error.has_value());
}

void MenuContent::updateProvider() {
    m_provider->setText(
        literal(QStringLiteral("Provider: ") + CleanupProviders::displayName(m_cleanup.provider())));
}

void MenuContent::updateSwitches() {
    const PreferenceSwitches& switches = PreferenceSwitches::of(m_controller);
    m_cleanupSwitch->setChecked(switches.cleanupEnabled());
    m_trailingSpaceSwitch->setChecked(switches.trailingSpace());
}

void MenuContent::updateKeyboardAccess() {
    m_keyboardAccess->setVisible(!m_controller.axTrusted());
}

void MenuContent::updateTrigger() {
    m_trigger->setText(
        literal(QStringLiteral("Hold ") + m_controller.triggerName() + QStringLiteral(" to dictate")));
}

void MenuContent::checkKeyboardAccess() {
    // Asks again (showing the desktop's own prompt where there is one), then leads to the
    // settings window, whose Permissions tab explains what is missing.
    m_controller.requestKeyboardAccess();
    emit settingsRequested();
}

} // namespace murmurly
