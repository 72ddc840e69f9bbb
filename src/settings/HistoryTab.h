#pragma once

#include "records/HistoryEntry.h"

#include <QCoro/QCoroTask>
#include <QLocale>
#include <QWidget>

#include <chrono>
#include <memory>
#include <optional>

class QAction;
class QCheckBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QMenu;
class QPushButton;
class QSpinBox;
class QStackedWidget;

namespace murmurly {

class AppController;
class FileDialogs;
class FocusReturn;
class HistoryStore;

// The History tab: the history switch and its retention, and the recorded dictations, newest
// first, to search, copy, paste again and delete. The only state of its own is the search text.
class HistoryTab : public QWidget {
    Q_OBJECT

public:
    // Confirms "Clear All" with the desktop's own dialog.
    explicit HistoryTab(AppController& controller, QWidget* parent = nullptr);
    HistoryTab(AppController& controller, FileDialogs& dialogs, QWidget* parent = nullptr);
    // "Re-insert" first gives the keyboard focus back to the window the user worked in before
    // the settings window took it, so the text lands there rather than in this window.
    HistoryTab(AppController& controller, FileDialogs& dialogs, FocusReturn& focus,
               QWidget* parent = nullptr);
    ~HistoryTab() override;

    // How long "Re-insert" waits for the focus to leave the settings window before pasting anyway.
    static constexpr std::chrono::milliseconds focusReturnLimit{1000};

    // The header line of an entry: date and time, then the provider unless cleanup was off, then
    // the application when one was recorded, joined by " · ".
    static QString headerLine(const HistoryEntry& entry, const QLocale& locale = QLocale());
    // The text a row shows and "Copy" copies: the final text when there is one, else the raw one.
    static QString shownText(const HistoryEntry& entry);

    // The entries the list shows now, in order.
    QList<HistoryEntry> shownEntries() const;

private:
    static QString headerLine(const HistoryEntry& entry, const QLocale& locale, const QString& appName);

    void build();
    void refreshSwitch();
    void refreshRetention();
    void refreshList();
    void showEntryMenu(const QPoint& position);
    std::optional<HistoryEntry> currentEntry() const;
    std::optional<HistoryEntry> entryAt(int row) const;

    void copy(const QString& text);
    QCoro::Task<> reinsert(QString text);
    void remove(const QUuid& id);
    void clearAll();

    AppController& m_controller;
    HistoryStore& m_store;
    std::unique_ptr<FileDialogs> m_ownDialogs;
    FileDialogs& m_dialogs;
    FocusReturn* m_focus = nullptr; // none: "Re-insert" pastes wherever the focus is

    QCheckBox* m_enabled = nullptr;
    QGroupBox* m_retention = nullptr;
    QSpinBox* m_keepLast = nullptr;
    QSpinBox* m_maxAge = nullptr;
    QLineEdit* m_search = nullptr;
    QPushButton* m_clearAll = nullptr;
    QStackedWidget* m_listOrEmpty = nullptr;
    QListWidget* m_list = nullptr;
    QLabel* m_empty = nullptr;
    QList<HistoryEntry> m_shown; // what the list shows, row by row
};

} // namespace murmurly
