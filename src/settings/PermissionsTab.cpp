#include "settings/PermissionsTab.h"

#include "core/AppController.h"
#include "core/Permissions.h"
#include "settings/SettingsLayout.h"
#include "settings/SettingsText.h"
#include "settings/UiResources.h"

#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace murmurly {

namespace {

constexpr int statusIconSize = 22;

struct Row {
    QLabel* status;
    QPushButton* button;
    QLabel* detail;
};

// Status sign, title over detail, and the action button, in one group of the tab.
Row addPermissionRow(QVBoxLayout* layout, const QString& title, const QString& detail, QWidget* parent,
                     QLabel** footerOut = nullptr, const QString& footer = {}) {
    auto* group = new QGroupBox(parent);
    auto* groupLayout = new QVBoxLayout(group);
    auto* row = new QHBoxLayout;
    row->setSpacing(12);
    auto* status = new QLabel(group);
    status->setFixedSize(statusIconSize, statusIconSize);
    auto* texts = new QVBoxLayout;
    texts->setSpacing(2);
    auto* titleLabel = new QLabel(title, group);
    titleLabel->setTextFormat(Qt::PlainText);
    SettingsText::makeHeadline(titleLabel);
    auto* detailLabel = new QLabel(detail, group);
    detailLabel->setTextFormat(Qt::PlainText);
    SettingsText::makeCaption(detailLabel);
    SettingsText::makeSecondary(detailLabel);
    texts->addWidget(titleLabel);
    texts->addWidget(detailLabel);
    auto* button = new QPushButton(group);
    button->setAutoDefault(false);
    row->addWidget(status, 0, Qt::AlignVCenter);
    row->addLayout(texts, 1);
    row->addWidget(button, 0, Qt::AlignVCenter);
    groupLayout->addLayout(row);
    if (!footerOut) {
        layout->addWidget(group);
        return {status, button, detailLabel};
    }
    // A footer sits close under its group, closer than the next group would.
    auto* section = new QWidget(parent);
    auto* sectionLayout = new QVBoxLayout(section);
    sectionLayout->setContentsMargins(0, 0, 0, 0);
    sectionLayout->setSpacing(6);
    group->setParent(section);
    sectionLayout->addWidget(group);
    auto* footerLabel = new QLabel(footer, section);
    footerLabel->setTextFormat(Qt::PlainText);
    footerLabel->setWordWrap(true);
    SettingsText::makeSecondary(footerLabel);
    footerLabel->setContentsMargins(4, 0, 4, 0);
    sectionLayout->addWidget(footerLabel);
    layout->addWidget(section);
    *footerOut = footerLabel;
    return {status, button, detailLabel};
}

void showStatus(QLabel* status, bool granted, const QString& title) {
    status->setPixmap(QPixmap::fromImage(
        UiResources::render(granted ? QStringLiteral("status-granted") : QStringLiteral("status-missing"),
                            statusIconSize * status->devicePixelRatio())));
    status->setAccessibleName(title +
                              (granted ? QStringLiteral(": granted") : QStringLiteral(": not granted")));
}

} // namespace

PermissionsTab::PermissionsTab(AppController& controller, QWidget* parent)
    : PermissionsTab(controller, {}, parent) {
}

PermissionsTab::PermissionsTab(AppController& controller, const QList<ServiceRow>& serviceRows,
                               QWidget* parent)
    : QWidget(parent)
    , m_controller(controller) {
    setWindowTitle(QStringLiteral("Permissions"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(SettingsLayout::contentMargin, SettingsLayout::contentMargin,
                               SettingsLayout::contentMargin, SettingsLayout::contentMargin);
    layout->setSpacing(SettingsLayout::sectionSpacing);

    const Row microphone = addPermissionRow(layout, QStringLiteral("Microphone"), microphoneDetail, this);
    m_microphoneStatus = microphone.status;
    m_microphoneButton = microphone.button;
    QLabel* footerLabel = nullptr;
    const Row keyboard = addPermissionRow(layout, QStringLiteral("Keyboard access"), keyboardDetail, this,
                                          &footerLabel, footer);
    m_keyboardStatus = keyboard.status;
    m_keyboardButton = keyboard.button;
    for (const ServiceRow& service : serviceRows) {
        const Row row = addPermissionRow(layout, service.title, service.detail, this);
        row.button->hide(); // nothing to grant: the session decides
        showStatus(row.status, service.working, service.title);
        row.detail->setWordWrap(true);
        m_serviceStatuses << row.status;
        m_serviceDetails << row.detail;
        m_serviceTitles << service.title;
    }
    layout->addStretch(1);

    connect(m_microphoneButton, &QPushButton::clicked, this, &PermissionsTab::microphoneAction);
    connect(m_keyboardButton, &QPushButton::clicked, this, &PermissionsTab::keyboardAction);
    connect(&controller, &AppController::micAuthorizedChanged, this, &PermissionsTab::update);
    connect(&controller, &AppController::axTrustedChanged, this, &PermissionsTab::update);
    update();
}

void PermissionsTab::update() {
    const bool microphone = m_controller.micAuthorized();
    showStatus(m_microphoneStatus, microphone, QStringLiteral("Microphone"));
    m_microphoneButton->setText(microphone ? QStringLiteral("Open Settings")
                                           : QStringLiteral("Request Access"));
    m_microphoneButton->setAccessibleName(QStringLiteral("Microphone: ") + m_microphoneButton->text());

    const bool keyboard = m_controller.axTrusted();
    showStatus(m_keyboardStatus, keyboard, QStringLiteral("Keyboard access"));
    m_keyboardButton->setText(keyboard ? QStringLiteral("Open Settings") : QStringLiteral("Check\u2026"));
    m_keyboardButton->setAccessibleName(QStringLiteral("Keyboard access: ") + m_keyboardButton->text());
}

void PermissionsTab::microphoneAction() {
    // While missing, the button asks; once granted, it leads to where access can be withdrawn.
    if (m_controller.micAuthorized())
        m_controller.openSystemSettings(Permissions::microphonePane);
    else
        m_controller.requestMicrophoneAccess();
}

void PermissionsTab::keyboardAction() {
    if (m_controller.axTrusted())
        m_controller.openSystemSettings(Permissions::keyboardPane);
    else
        m_controller.requestKeyboardAccess();
}

void PermissionsTab::setServiceRow(qsizetype index, const ServiceRow& row) {
    if (index < 0 || index >= m_serviceDetails.size()) return;
    m_serviceDetails.at(index)->setText(row.detail);
    showStatus(m_serviceStatuses.at(index), row.working, m_serviceTitles.at(index));
}

} // namespace murmurly
