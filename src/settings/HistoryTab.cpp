#include "settings/HistoryTab.h"

#include "core/AppController.h"
#include "core/FocusReturn.h"
#include "core/Log.h"
#include "records/HistoryStore.h"
#include "settings/ApplicationName.h"
#include "settings/FileDialogs.h"
#include "settings/FocusedSpinBox.h"
#include "settings/HistoryEntryDelegate.h"
#include "settings/QtFileDialogs.h"
#include "settings/SettingsLayout.h"
#include "settings/SettingsText.h"
#include "settings/StatusLabel.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QFrame>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHash>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace murmurly {

namespace {

constexpr int idRole = Qt::UserRole + 2;

} // namespace

HistoryTab::HistoryTab(AppController& controller, QWidget* parent)
    : QWidget(parent)
    , m_controller(controller)
    , m_store(controller.history())
    , m_ownDialogs(std::make_unique<QtFileDialogs>())
    , m_dialogs(*m_ownDialogs) {
    build();
}

HistoryTab::HistoryTab(AppController& controller, FileDialogs& dialogs, QWidget* parent)
    : QWidget(parent)
    , m_controller(controller)
    , m_store(controller.history())
    , m_dialogs(dialogs) {
    build();
}

HistoryTab::HistoryTab(AppController& controller, FileDialogs& dialogs, FocusReturn& focus, QWidget* parent)
    : QWidget(parent)
    , m_controller(controller)
    , m_store(controller.history())
    , m_dialogs(dialogs)
    , m_focus(&focus) {
    build();
}

HistoryTab::~HistoryTab() = default;

QString HistoryTab::headerLine(const HistoryEntry& entry, const QLocale& locale) {
    return headerLine(entry, locale,
                      entry.appBundleID ? ApplicationName::forIdentifier(*entry.appBundleID) : QString());
}

QString HistoryTab::headerLine(const HistoryEntry& entry, const QLocale& locale, const QString& appName) {
    // Abbreviated month, day, then the locale's own short time (with AM/PM where it uses one).
    const QString format = QStringLiteral("MMM d, ") + locale.timeFormat(QLocale::ShortFormat);
    QStringList parts{locale.toString(entry.date().toLocalTime(), format)};
    if (entry.providerName != AppController::noProviderName) parts << entry.providerName;
    if (entry.appBundleID) parts << appName;
    return parts.join(QStringLiteral(" \u00B7 "));
}

QString HistoryTab::shownText(const HistoryEntry& entry) {
    return entry.cleanedText.value_or(entry.rawText);
}

QList<HistoryEntry> HistoryTab::shownEntries() const {
    return m_shown;
}

void HistoryTab::build() {
    setAccessibleName(QStringLiteral("History"));
    setWindowTitle(QStringLiteral("History"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(SettingsLayout::contentMargin, SettingsLayout::contentMargin,
                               SettingsLayout::contentMargin, SettingsLayout::contentMargin);
    column->setSpacing(12);

    auto* switchSection = new QGroupBox;
    auto* switchColumn = new QVBoxLayout(switchSection);
    switchColumn->setSpacing(4);
    m_enabled = new QCheckBox(QStringLiteral("Keep a local history of dictations"));
    m_enabled->setObjectName(QStringLiteral("historyEnabled"));
    m_enabled->setAccessibleName(m_enabled->text());
    connect(m_enabled, &QCheckBox::toggled, this, [this](bool on) {
        if (on != m_store.enabled()) m_store.setEnabled(on);
    });
    auto* explanation = SettingsText::note(
        QStringLiteral("Off by default. Stored only on this computer (~/.local/share/murmurly), "
                       "never synced. Transcripts can be sensitive."));
    explanation->setObjectName(QStringLiteral("historyExplanation"));
    switchColumn->addWidget(m_enabled);
    switchColumn->addWidget(explanation);
    column->addWidget(switchSection);

    m_retention = new QGroupBox(QStringLiteral("Retention"));
    m_retention->setObjectName(QStringLiteral("retention"));
    auto* retentionRow = new QHBoxLayout(m_retention);
    // Each stepper's text is its whole label: the value sits between the words, and the limit
    // that means "none" has words of its own.
    m_keepLast = new FocusedSpinBox;
    m_keepLast->setObjectName(QStringLiteral("keepLast"));
    m_keepLast->setAccessibleName(QStringLiteral("Keep last entries"));
    m_keepLast->setRange(0, 5000);
    m_keepLast->setSingleStep(25);
    m_keepLast->setPrefix(QStringLiteral("Keep last "));
    m_keepLast->setSuffix(QStringLiteral(" entries"));
    m_keepLast->setSpecialValueText(QStringLiteral("Keep last \u221E entries"));
    m_maxAge = new FocusedSpinBox;
    m_maxAge->setObjectName(QStringLiteral("maxAgeDays"));
    m_maxAge->setAccessibleName(QStringLiteral("Delete after days"));
    m_maxAge->setRange(0, 365);
    m_maxAge->setSingleStep(1);
    m_maxAge->setPrefix(QStringLiteral("Delete after "));
    m_maxAge->setSuffix(QStringLiteral(" days"));
    m_maxAge->setSpecialValueText(QStringLiteral("No age limit"));
    // Each step prunes and saves at once, so a wheel turn while scrolling the page must not
    // change them: they take the wheel only once focused.
    for (QSpinBox* stepper : {m_keepLast, m_maxAge}) {
        // Typed numbers are taken when the field is left or Enter is pressed, not digit by digit,
        // so that typing "250" does not prune down to 2 entries on the way.
        stepper->setKeyboardTracking(false);
        stepper->setAlignment(Qt::AlignLeft);
        retentionRow->addWidget(stepper);
    }
    retentionRow->addStretch(1);
    connect(m_keepLast, &QSpinBox::valueChanged, this, [this](int value) {
        if (value != m_store.keepLast()) m_store.setKeepLast(value);
    });
    connect(m_maxAge, &QSpinBox::valueChanged, this, [this](int value) {
        if (value != m_store.maxAgeDays()) m_store.setMaxAgeDays(value);
    });
    column->addWidget(m_retention);

    auto* divider = new QFrame;
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);
    column->addWidget(divider);

    auto* searchRow = new QHBoxLayout;
    m_search = new QLineEdit;
    m_search->setObjectName(QStringLiteral("search"));
    m_search->setPlaceholderText(QStringLiteral("Search history"));
    m_search->setAccessibleName(QStringLiteral("Search history"));
    m_search->setClearButtonEnabled(true);
    connect(m_search, &QLineEdit::textChanged, this, &HistoryTab::refreshList);
    m_clearAll = new QPushButton(QStringLiteral("Clear All"));
    m_clearAll->setObjectName(QStringLiteral("clearAll"));
    m_clearAll->setAccessibleName(QStringLiteral("Clear All"));
    QPalette destructive = m_clearAll->palette();
    // Only while the button can be pressed: disabled, it greys out like any other.
    for (const QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive})
        destructive.setColor(group, QPalette::ButtonText,
                             StatusLabel::colorFor(StatusLabel::Kind::failure, destructive));
    m_clearAll->setPalette(destructive);
    connect(m_clearAll, &QPushButton::clicked, this, &HistoryTab::clearAll);
    searchRow->addWidget(m_search, 1);
    searchRow->addWidget(m_clearAll);
    column->addLayout(searchRow);

    m_list = new QListWidget;
    m_list->setObjectName(QStringLiteral("entries"));
    m_list->setAccessibleName(QStringLiteral("Recorded dictations"));
    m_list->setItemDelegate(new HistoryEntryDelegate(m_list));
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // Row heights follow the width: the text wraps to at most three lines.
    m_list->setResizeMode(QListView::Adjust);
    m_list->setUniformItemSizes(false);
    m_list->setAlternatingRowColors(true);
    m_list->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_list, &QListWidget::customContextMenuRequested, this, &HistoryTab::showEntryMenu);

    // The menu's two most used actions also work from the keyboard on the selected entry.
    auto* copyShortcut = new QAction(QStringLiteral("Copy"), m_list);
    copyShortcut->setShortcut(QKeySequence::Copy);
    copyShortcut->setShortcutContext(Qt::WidgetShortcut);
    connect(copyShortcut, &QAction::triggered, this, [this] {
        if (const auto entry = currentEntry()) copy(shownText(*entry));
    });
    auto* deleteShortcut = new QAction(QStringLiteral("Delete"), m_list);
    deleteShortcut->setShortcut(QKeySequence::Delete);
    deleteShortcut->setShortcutContext(Qt::WidgetShortcut);
    connect(deleteShortcut, &QAction::triggered, this, [this] {
        if (const auto entry = currentEntry()) remove(entry->id);
    });
    m_list->addActions({copyShortcut, deleteShortcut});

    m_empty = new QLabel;
    m_empty->setObjectName(QStringLiteral("emptyHistory"));
    m_empty->setAlignment(Qt::AlignCenter);
    SettingsText::makeSecondary(m_empty);
    m_listOrEmpty = new QStackedWidget;
    m_listOrEmpty->addWidget(m_list);
    m_listOrEmpty->addWidget(m_empty);
    column->addWidget(m_listOrEmpty, 1);

    connect(&m_store, &HistoryStore::enabledChanged, this, &HistoryTab::refreshSwitch);
    connect(&m_store, &HistoryStore::keepLastChanged, this, &HistoryTab::refreshRetention);
    connect(&m_store, &HistoryStore::maxAgeDaysChanged, this, &HistoryTab::refreshRetention);
    connect(&m_store, &HistoryStore::entriesChanged, this, &HistoryTab::refreshList);
    refreshSwitch();
    refreshRetention();
    refreshList();
}

void HistoryTab::refreshSwitch() {
    const QSignalBlocker blocker(m_enabled);
    m_enabled->setChecked(m_store.enabled());
    // Retention only matters while recording; the recorded entries stay listed either way.
    m_retention->setVisible(m_store.enabled());
}

void HistoryTab::refreshRetention() {
    const QSignalBlocker keepLast(m_keepLast);
    const QSignalBlocker maxAge(m_maxAge);
    m_keepLast->setValue(int(std::clamp<qint64>(m_store.keepLast(), 0, m_keepLast->maximum())));
    m_maxAge->setValue(int(std::clamp<qint64>(m_store.maxAgeDays(), 0, m_maxAge->maximum())));
}

void HistoryTab::refreshList() {
    const std::optional<HistoryEntry> current = currentEntry();
    m_shown = m_store.filtered(m_search->text());
    m_clearAll->setEnabled(!m_store.entries().isEmpty());

    m_list->clear();
    const QLocale locale;
    // Most entries share a handful of applications: each one's desktop entry is read once.
    QHash<QString, QString> appNames;
    for (const HistoryEntry& entry : m_shown) {
        auto* item = new QListWidgetItem(shownText(entry));
        QString appName;
        if (entry.appBundleID) {
            auto known = appNames.find(*entry.appBundleID);
            if (known == appNames.end())
                known =
                    appNames.insert(*entry.appBundleID, ApplicationName::forIdentifier(*entry.appBundleID));
            appName = *known;
        }
        const QString header = headerLine(entry, locale, appName);
        item->setData(HistoryEntryDelegate::headerRole, header);
        item->setData(idRole, entry.id);
        item->setData(Qt::AccessibleTextRole, header + QStringLiteral(": ") + shownText(entry));
        m_list->addItem(item);
        if (current && current->id == entry.id) m_list->setCurrentItem(item);
    }
    if (m_shown.isEmpty()) {
        m_empty->setText(m_search->text().isEmpty() ? QStringLiteral("No dictations recorded yet.")
                                                    : QStringLiteral("No matches."));
        m_listOrEmpty->setCurrentWidget(m_empty);
    } else {
        m_listOrEmpty->setCurrentWidget(m_list);
    }
}

std::optional<HistoryEntry> HistoryTab::entryAt(int row) const {
    if (row < 0 || row >= m_shown.size()) return std::nullopt;
    return m_shown.at(row);
}

std::optional<HistoryEntry> HistoryTab::currentEntry() const {
    return m_list ? entryAt(m_list->currentRow()) : std::nullopt;
}

void HistoryTab::showEntryMenu(const QPoint& position) {
    const QModelIndex index = m_list->indexAt(position);
    const std::optional<HistoryEntry> entry = index.isValid() ? entryAt(index.row()) : std::nullopt;
    if (!entry) return;
    m_list->setCurrentRow(index.row());

    auto* menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("entryMenu"));
    menu->setAttribute(Qt::WA_DeleteOnClose);
    const HistoryEntry chosen = *entry;
    menu->addAction(QStringLiteral("Copy"), this, [this, chosen] { copy(shownText(chosen)); });
    if (chosen.cleanedText)
        menu->addAction(QStringLiteral("Copy Raw"), this, [this, chosen] { copy(chosen.rawText); });
    menu->addAction(QStringLiteral("Re-insert"), this, [this, chosen] { reinsert(shownText(chosen)); });
    menu->addSeparator();
    QAction* remove =
        menu->addAction(QStringLiteral("Delete"), this, [this, chosen] { this->remove(chosen.id); });
    remove->setObjectName(QStringLiteral("deleteEntry"));
    // Shown without waiting, so the event loop (and a test driving it) keeps running.
    menu->popup(m_list->viewport()->mapToGlobal(position));
}

QCoro::Task<> HistoryTab::reinsert(QString text) {
    // The settings window has the focus while the user picks the entry, and the paste goes
    // wherever the focus is: it goes back first. The controller outlives this window, so the text
    // is pasted even if the window was closed meanwhile.
    AppController& controller = m_controller;
    if (m_focus && !co_await m_focus->returnFocus(focusReturnLimit))
        qCWarning(lcApp, "Re-inserting where the focus is: it could not be given back");
    controller.reinsert(text);
}

void HistoryTab::copy(const QString& text) {
    // A plain copy: the clipboard's earlier content is not restored.
    QClipboard* clipboard = QApplication::clipboard();
    clipboard->clear();
    clipboard->setText(text);
}

void HistoryTab::remove(const QUuid& id) {
    QList<HistoryEntry> entries = m_store.entries();
    entries.removeIf([&](const HistoryEntry& entry) { return entry.id == id; });
    m_store.setEntries(entries);
    m_store.save();
}

void HistoryTab::clearAll() {
    // At once, without asking: the button is disabled while there is nothing to clear.
    if (m_store.entries().isEmpty()) return;
    m_store.setEntries({});
    m_store.save();
}

} // namespace murmurly
