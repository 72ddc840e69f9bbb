#pragma once

#include <QWidget>

#include <functional>

class QLabel;
class QPushButton;
class QVBoxLayout;

namespace murmurly {

class UsageTracker;

// The Usage tab: cleanups, tokens and estimated cost for this session and for all time, the price
// table they are estimated from, and a button that resets the counters. It follows the tracker,
// so it changes after every cleaned dictation.
class UsageTab : public QWidget {
    Q_OBJECT

public:
    static inline const QString noCleanupsText = QStringLiteral("No cleanups recorded yet.");
    static inline const QString pricingNote =
        QStringLiteral("Estimates for each provider's default model. On-device is always free.");

    explicit UsageTab(UsageTracker& tracker, QWidget* parent = nullptr);

    // A price per million tokens: "$0" when exactly zero, else "$%g" ("$0.15", "$5").
    static QString priceText(double dollarsPerMillion);

    QLabel* dictationsCleanedLabel() const { return m_dictationsCleaned; }
    QLabel* sessionCostLabel() const { return m_sessionCost; }
    QLabel* totalLabel() const { return m_total; }
    QWidget* allTimeRows() const { return m_allTimeRows; }
    QPushButton* resetButton() const { return m_reset; }

private:
    void updateSession();
    void updateAllTime();
    void reset();

    UsageTracker& m_tracker;
    QLabel* m_dictationsCleaned = nullptr;
    QLabel* m_sessionCost = nullptr;
    QWidget* m_allTimeRows = nullptr;
    QVBoxLayout* m_allTimeLayout = nullptr;
    QLabel* m_total = nullptr;
    QPushButton* m_reset = nullptr;
};

} // namespace murmurly
