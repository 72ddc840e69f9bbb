#include "settings/UsageTab.h"

#include "cleanup/CleanupProvider.h"
#include "records/MoneyFormat.h"
#include "records/UsageTracker.h"
#include "settings/SettingsLayout.h"
#include "settings/SettingsText.h"

#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace murmurly {

namespace {

QLabel* plainLabel(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setTextFormat(Qt::PlainText);
    return label;
}

// A name at the left and its value at the right of one line.
QLabel* addValueRow(QGridLayout* grid, const QString& name, QWidget* parent) {
    const int row = grid->rowCount();
    grid->addWidget(plainLabel(name, parent), row, 0, Qt::AlignLeft | Qt::AlignVCenter);
    auto* value = plainLabel(QString(), parent);
    value->setAccessibleName(name);
    value->setTextInteractionFlags(Qt::TextSelectableByMouse);
    grid->addWidget(value, row, 1, Qt::AlignRight | Qt::AlignVCenter);
    return value;
}

QGroupBox* addSection(QVBoxLayout* layout, const QString& title, QWidget* parent) {
    auto* group = new QGroupBox(title, parent);
    layout->addWidget(group);
    return group;
}

QGridLayout* valueGrid(QWidget* parent) {
    auto* grid = new QGridLayout(parent);
    grid->setHorizontalSpacing(12);
    grid->setVerticalSpacing(10);
    grid->setColumnStretch(0, 1);
    return grid;
}

} // namespace

UsageTab::UsageTab(UsageTracker& tracker, QWidget* parent)
    : QWidget(parent)
    , m_tracker(tracker) {
    setWindowTitle(QStringLiteral("Usage"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(SettingsLayout::contentMargin, SettingsLayout::contentMargin,
                               SettingsLayout::contentMargin, SettingsLayout::contentMargin);
    layout->setSpacing(SettingsLayout::sectionSpacing);

    // This Session
    QGroupBox* session = addSection(layout, QStringLiteral("This Session"), this);
    QGridLayout* sessionGrid = valueGrid(session);
    m_dictationsCleaned = addValueRow(sessionGrid, QStringLiteral("Dictations cleaned"), session);
    m_sessionCost = addValueRow(sessionGrid, QStringLiteral("Estimated cost"), session);

    // All Time
    QGroupBox* allTime = addSection(layout, QStringLiteral("All Time"), this);
    auto* allTimeLayout = new QVBoxLayout(allTime);
    allTimeLayout->setSpacing(10);
    m_allTimeRows = new QWidget(allTime);
    m_allTimeLayout = new QVBoxLayout(m_allTimeRows);
    m_allTimeLayout->setContentsMargins(0, 0, 0, 0);
    m_allTimeLayout->setSpacing(8);
    allTimeLayout->addWidget(m_allTimeRows);
    auto* totalHolder = new QWidget(allTime);
    QGridLayout* totalGrid = valueGrid(totalHolder);
    totalGrid->setContentsMargins(0, 0, 0, 0);
    m_total = addValueRow(totalGrid, QStringLiteral("Total"), totalHolder);
    allTimeLayout->addWidget(totalHolder);

    // Pricing
    QGroupBox* pricing = addSection(layout, QStringLiteral("Pricing \u2014 $ per 1M tokens"), this);
    QGridLayout* pricingGrid = valueGrid(pricing);
    for (const CleanupProvider provider : CleanupProviders::allCases) {
        const auto price = tracker.prices().constFind(CleanupProviders::rawValue(provider));
        if (price == tracker.prices().constEnd()) continue;
        QLabel* value = addValueRow(pricingGrid, CleanupProviders::displayName(provider), pricing);
        value->setText(priceText(price->inputPer1M) + QStringLiteral(" in / ") +
                       priceText(price->outputPer1M) + QStringLiteral(" out"));
    }
    QLabel* note = plainLabel(pricingNote, pricing);
    SettingsText::makeCaption(note);
    SettingsText::makeSecondary(note);
    pricingGrid->addWidget(note, pricingGrid->rowCount(), 0, 1, 2);

    // Reset
    auto* resetGroup = new QGroupBox(this);
    auto* resetLayout = new QHBoxLayout(resetGroup);
    m_reset = new QPushButton(QStringLiteral("Reset Totals"), resetGroup);
    m_reset->setAutoDefault(false);
    // Drawn in red: it throws the counts away.
    QPalette destructive = m_reset->palette();
    destructive.setColor(QPalette::ButtonText, QColor(0xc5, 0x22, 0x1f));
    m_reset->setPalette(destructive);
    resetLayout->addWidget(m_reset);
    resetLayout->addStretch(1);
    layout->addWidget(resetGroup);
    layout->addStretch(1);

    connect(m_reset, &QPushButton::clicked, this, &UsageTab::reset);
    connect(&tracker, &UsageTracker::sessionChanged, this, &UsageTab::updateSession);
    connect(&tracker, &UsageTracker::allTimeChanged, this, &UsageTab::updateAllTime);
    updateSession();
    updateAllTime();
}

QString UsageTab::priceText(double dollarsPerMillion) {
    if (dollarsPerMillion == 0.0) return QStringLiteral("$0");
    return QString::asprintf("$%g", dollarsPerMillion);
}

void UsageTab::updateSession() {
    qint64 dictations = 0;
    for (const CleanupProvider provider : CleanupProviders::allCases)
        dictations += m_tracker.session().value(CleanupProviders::rawValue(provider)).dictations;
    m_dictationsCleaned->setText(QString::number(dictations));
    m_sessionCost->setText(MoneyFormat::dollars(m_tracker.sessionCost()));
}

void UsageTab::updateAllTime() {
    while (QLayoutItem* item = m_allTimeLayout->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    const UsageTracker::UsageMap& allTime = m_tracker.allTime();
    if (allTime.isEmpty()) {
        QLabel* none = plainLabel(noCleanupsText, m_allTimeRows);
        SettingsText::makeSecondary(none);
        m_allTimeLayout->addWidget(none);
        none->show(); // made after the tab may be on screen: not shown with it
    }
    for (const CleanupProvider provider : CleanupProviders::allCases) {
        const QString id = CleanupProviders::rawValue(provider);
        const auto record = allTime.constFind(id);
        if (record == allTime.constEnd()) continue;
        auto* row = new QWidget(m_allTimeRows);
        auto* grid = new QGridLayout(row);
        grid->setContentsMargins(0, 2, 0, 2);
        grid->setHorizontalSpacing(12);
        grid->setVerticalSpacing(2);
        grid->setColumnStretch(0, 1);
        QLabel* name = plainLabel(CleanupProviders::displayName(provider), row);
        SettingsText::makeHeadline(name);
        QLabel* cost = plainLabel(MoneyFormat::dollars(m_tracker.cost(*record, id)), row);
        cost->setAccessibleName(CleanupProviders::displayName(provider) + QStringLiteral(" cost"));
        QLabel* counts = plainLabel(QString::asprintf("%lld dictations \u00B7 %lld in / %lld out tokens",
                                                      static_cast<long long>(record->dictations),
                                                      static_cast<long long>(record->inputTokens),
                                                      static_cast<long long>(record->outputTokens)),
                                    row);
        SettingsText::makeCaption(counts);
        counts->setAccessibleName(CleanupProviders::displayName(provider) + QStringLiteral(" counts"));
        grid->addWidget(name, 0, 0, Qt::AlignLeft | Qt::AlignVCenter);
        grid->addWidget(cost, 0, 1, Qt::AlignRight | Qt::AlignVCenter);
        grid->addWidget(counts, 1, 0, 1, 2);
        m_allTimeLayout->addWidget(row);
        row->show();
    }
    m_total->setText(MoneyFormat::dollars(m_tracker.allTimeCost()));
}

void UsageTab::reset() {
    // At once: the totals are estimates, and asking would only slow the user down.
    m_tracker.reset();
}

} // namespace murmurly
