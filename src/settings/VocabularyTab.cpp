#include "settings/VocabularyTab.h"

#include "core/AppController.h"
#include "output/ReplacementStore.h"
#include "settings/FileDialogs.h"
#include "settings/SettingsLayout.h"

#include <QCheckBox>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>
#include <QTableWidget>
#include <QToolButton>
#include <QVBoxLayout>

namespace murmurly {

namespace {

const QString jsonFilter = QStringLiteral("JSON files (*.json)");
const char* ruleIdProperty = "murmurlyRuleId";

enum class Symbol { plus, minus, chevronUp, chevronDown };

// A line-drawn symbol in the button text colour, for the normal and the disabled state.
QIcon symbolIcon(Symbol symbol, const QPalette& palette) {
    QIcon icon;
    for (const QIcon::Mode mode : {QIcon::Normal, QIcon::Disabled}) {
        const QColor color = palette.color(mode == QIcon::Disabled ? QPalette::Disabled : QPalette::Active,
                                           QPalette::ButtonText);
        for (const qreal ratio : {1.0, 2.0}) {
            const qreal s = 16;
            QPixmap pixmap(QSize(16, 16) * ratio);
            pixmap.setDevicePixelRatio(ratio);
            pixmap.fill(Qt::transparent);
            QPainter painter(&pixmap);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setPen(QPen(color, 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
            switch (symbol) {
            case Symbol::plus:
                painter.drawLine(QPointF(s * 0.5, s * 0.2), QPointF(s * 0.5, s * 0.8));
                [[fallthrough]];
            case Symbol::minus:
                painter.drawLine(QPointF(s * 0.2, s * 0.5), QPointF(s * 0.8, s * 0.5));
                break;
            case Symbol::chevronUp:
                painter.drawPolyline(
                    QPolygonF{{s * 0.22, s * 0.64}, {s * 0.5, s * 0.36}, {s * 0.78, s * 0.64}});
                break;
            case Symbol::chevronDown:
                painter.drawPolyline(
                    QPolygonF{{s * 0.22, s * 0.36}, {s * 0.5, s * 0.64}, {s * 0.78, s * 0.36}});
                break;
            }
            painter.end();
            icon.addPixmap(pixmap, mode);
        }
    }
    return icon;
}

QToolButton* symbolButton(Symbol symbol, const QString& name, QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setIcon(symbolIcon(symbol, button->palette()));
    button->setToolTip(name);
    button->setAccessibleName(name);
    button->setAutoRaise(false);
    button->setFocusPolicy(Qt::StrongFocus);
    button->setFixedSize(28, 26);
    return button;
}

// A checkbox without a visible label, centred in its cell.
QWidget* centredCheckBox(QCheckBox*& box, const QString& accessibleName) {
    auto* cell = new QWidget;
    auto* layout = new QHBoxLayout(cell);
    layout->setContentsMargins(0, 0, 0, 0);
    box = new QCheckBox(cell);
    box->setAccessibleName(accessibleName);
    layout->addWidget(box, 0, Qt::AlignCenter);
    return cell;
}

} // namespace

VocabularyTab::VocabularyTab(AppController& controller, FileDialogs& dialogs, QWidget* parent)
    : QWidget(parent)
    , m_store(controller.replacements())
    , m_dialogs(dialogs) {
    setAccessibleName(QStringLiteral("Vocabulary"));
    setWindowTitle(QStringLiteral("Vocabulary"));

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(SettingsLayout::contentMargin, SettingsLayout::contentMargin,
                               SettingsLayout::contentMargin, SettingsLayout::contentMargin);
    column->setSpacing(10);

    m_enabled = new QCheckBox(QStringLiteral("Enable text replacements"));
    m_enabled->setObjectName(QStringLiteral("replacementsEnabled"));
    m_enabled->setAccessibleName(m_enabled->text());
    connect(m_enabled, &QCheckBox::toggled, this, [this](bool on) {
        if (on != m_store.enabled()) m_store.setEnabled(on);
    });
    column->addWidget(m_enabled);

    m_table = new QTableWidget(0, columnCount);
    m_table->setObjectName(QStringLiteral("rules"));
    m_table->setAccessibleName(QStringLiteral("Replacement rules"));
    m_table->setHorizontalHeaderLabels({QStringLiteral("Replace"), QStringLiteral("With"),
                                        QStringLiteral("Whole word"), QStringLiteral("Case"),
                                        QStringLiteral("On")});
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    // Tab walks through the fields of the rows; arrow keys move the selection.
    m_table->setTabKeyNavigation(false);
    m_table->verticalHeader()->hide();
    m_table->setShowGrid(false);
    m_table->setAlternatingRowColors(true);
    m_table->setWordWrap(false);
    QHeaderView* header = m_table->horizontalHeader();
    header->setHighlightSections(false);
    header->setSectionResizeMode(replaceColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(withColumn, QHeaderView::Stretch);
    const std::initializer_list<std::pair<Column, int>> fixedWidths{
        {wholeWordColumn, 80}, {caseColumn, 44}, {onColumn, 36}};
    for (const auto& [col, width] : fixedWidths) {
        header->setSectionResizeMode(col, QHeaderView::Fixed);
        m_table->setColumnWidth(col, width);
    }
    header->setMinimumSectionSize(30);
    m_table->verticalHeader()->setDefaultSectionSize(QLineEdit().sizeHint().height() + 6);
    connect(m_table, &QTableWidget::itemSelectionChanged, this, &VocabularyTab::selectionChangedInTable);
    column->addWidget(m_table, 1);

    auto* buttons = new QHBoxLayout;
    buttons->setSpacing(4);
    m_add = symbolButton(Symbol::plus, QStringLiteral("Add Rule"), this);
    m_add->setObjectName(QStringLiteral("addRule"));
    m_remove = symbolButton(Symbol::minus, QStringLiteral("Remove Rule"), this);
    m_remove->setObjectName(QStringLiteral("removeRule"));
    m_moveUp = symbolButton(Symbol::chevronUp, QStringLiteral("Move Rule Up"), this);
    m_moveUp->setObjectName(QStringLiteral("moveRuleUp"));
    m_moveDown = symbolButton(Symbol::chevronDown, QStringLiteral("Move Rule Down"), this);
    m_moveDown->setObjectName(QStringLiteral("moveRuleDown"));
    m_import = new QPushButton(QStringLiteral("Import\u2026"));
    m_import->setObjectName(QStringLiteral("importRules"));
    m_import->setAccessibleName(QStringLiteral("Import\u2026"));
    m_export = new QPushButton(QStringLiteral("Export\u2026"));
    m_export->setObjectName(QStringLiteral("exportRules"));
    m_export->setAccessibleName(QStringLiteral("Export\u2026"));
    for (QWidget* button : {static_cast<QWidget*>(m_add), static_cast<QWidget*>(m_remove),
                            static_cast<QWidget*>(m_moveUp), static_cast<QWidget*>(m_moveDown)})
        buttons->addWidget(button);
    buttons->addStretch(1);
    buttons->addWidget(m_import);
    buttons->addWidget(m_export);
    column->addLayout(buttons);

    connect(m_add, &QToolButton::clicked, this, &VocabularyTab::addRule);
    connect(m_remove, &QToolButton::clicked, this, &VocabularyTab::removeRule);
    connect(m_moveUp, &QToolButton::clicked, this, [this] { moveRule(-1); });
    connect(m_moveDown, &QToolButton::clicked, this, [this] { moveRule(+1); });
    connect(m_import, &QPushButton::clicked, this, &VocabularyTab::importRules);
    connect(m_export, &QPushButton::clicked, this, &VocabularyTab::exportRules);

    connect(&m_store, &ReplacementStore::enabledChanged, this, [this] { updateRows(); });
    connect(&m_store, &ReplacementStore::rulesChanged, this, &VocabularyTab::rulesChanged);
    rebuildRows();
}

QWidget* VocabularyTab::editor(int row, Column column) const {
    QWidget* cell = m_table->cellWidget(row, column);
    if (!cell || column == replaceColumn || column == withColumn) return cell;
    return cell->findChild<QCheckBox*>();
}

void VocabularyTab::select(const std::optional<QUuid>& id) {
    const int row = id ? int(m_rowIds.indexOf(*id)) : -1;
    if (row < 0) {
        m_table->clearSelection();
        m_selection.reset();
        refreshButtons();
        return;
    }
    m_table->selectRow(row);
    m_selection = id;
    refreshButtons();
}

void VocabularyTab::rulesChanged() {
    QList<QUuid> ids;
    for (const ReplacementRule& rule : m_store.rules())
        ids << rule.id;
    // A change of text or switches only updates the fields, so the field being typed in keeps its
    // focus and cursor; a change of the list itself lays the rows out again.
    if (ids == m_rowIds)
        updateRows();
    else
        rebuildRows();
}

void VocabularyTab::rebuildRows() {
    const std::optional<QUuid> selection = m_selection;
    const QList<ReplacementRule>& rules = m_store.rules();
    {
        const QSignalBlocker blocker(m_table);
        m_table->clearContents();
        m_table->setRowCount(int(rules.size()));
    }
    m_rowIds.clear();
    for (int row = 0; row < rules.size(); ++row) {
        const ReplacementRule& rule = rules.at(row);
        m_rowIds << rule.id;
        const QString number = QString::number(row + 1);

        auto* from = new QLineEdit;
        from->setPlaceholderText(QStringLiteral("from"));
        from->setAccessibleName(QStringLiteral("Replace, rule ") + number);
        auto* to = new QLineEdit;
        to->setPlaceholderText(QStringLiteral("to"));
        to->setAccessibleName(QStringLiteral("With, rule ") + number);
        QCheckBox* wholeWord = nullptr;
        QCheckBox* caseSensitive = nullptr;
        QCheckBox* enabled = nullptr;
        m_table->setCellWidget(row, replaceColumn, from);
        m_table->setCellWidget(row, withColumn, to);
        m_table->setCellWidget(row, wholeWordColumn,
                               centredCheckBox(wholeWord, QStringLiteral("Whole word, rule ") + number));
        m_table->setCellWidget(
            row, caseColumn,
            centredCheckBox(caseSensitive, QStringLiteral("Case sensitive, rule ") + number));
        m_table->setCellWidget(row, onColumn, centredCheckBox(enabled, QStringLiteral("On, rule ") + number));

        const QUuid id = rule.id;
        for (QWidget* field :
             {static_cast<QWidget*>(from), static_cast<QWidget*>(to), static_cast<QWidget*>(wholeWord),
              static_cast<QWidget*>(caseSensitive), static_cast<QWidget*>(enabled)}) {
            field->setProperty(ruleIdProperty, id);
            field->installEventFilter(this);
        }
        connect(from, &QLineEdit::textEdited, this, [this, id](const QString& text) {
            editRule(id, [&](ReplacementRule& r) { r.from = text; });
        });
        connect(to, &QLineEdit::textEdited, this,
                [this, id](const QString& text) { editRule(id, [&](ReplacementRule& r) { r.to = text; }); });
        connect(wholeWord, &QCheckBox::clicked, this,
                [this, id](bool on) { editRule(id, [&](ReplacementRule& r) { r.matchWholeWord = on; }); });
        connect(caseSensitive, &QCheckBox::clicked, this,
                [this, id](bool on) { editRule(id, [&](ReplacementRule& r) { r.caseSensitive = on; }); });
        connect(enabled, &QCheckBox::clicked, this,
                [this, id](bool on) { editRule(id, [&](ReplacementRule& r) { r.enabled = on; }); });
    }
    // Tab goes from the table through each row's fields in reading order, then on to the buttons.
    QWidget* previous = m_table;
    for (int row = 0; row < m_table->rowCount(); ++row)
        for (int column = 0; column < columnCount; ++column) {
            QWidget* next = editor(row, Column(column));
            QWidget::setTabOrder(previous, next);
            previous = next;
        }
    for (QWidget* next : {static_cast<QWidget*>(m_add), static_cast<QWidget*>(m_remove),
                          static_cast<QWidget*>(m_moveUp), static_cast<QWidget*>(m_moveDown),
                          static_cast<QWidget*>(m_import), static_cast<QWidget*>(m_export)}) {
        QWidget::setTabOrder(previous, next);
        previous = next;
    }
    updateRows();
    select(selection && m_rowIds.contains(*selection) ? selection : std::nullopt);
}

void VocabularyTab::updateRows() {
    const bool on = m_store.enabled();
    {
        const QSignalBlocker blocker(m_enabled);
        m_enabled->setChecked(on);
    }
    const QList<ReplacementRule>& rules = m_store.rules();
    for (int row = 0; row < rules.size() && row < m_table->rowCount(); ++row) {
        const ReplacementRule& rule = rules.at(row);
        auto* from = static_cast<QLineEdit*>(editor(row, replaceColumn));
        auto* to = static_cast<QLineEdit*>(editor(row, withColumn));
        if (from->text() != rule.from) from->setText(rule.from);
        if (to->text() != rule.to) to->setText(rule.to);
        static_cast<QCheckBox*>(editor(row, wholeWordColumn))->setChecked(rule.matchWholeWord);
        static_cast<QCheckBox*>(editor(row, caseColumn))->setChecked(rule.caseSensitive);
        static_cast<QCheckBox*>(editor(row, onColumn))->setChecked(rule.enabled);
        // While replacements are off the rules stay visible, greyed out and read-only.
        for (int column = 0; column < columnCount; ++column)
            editor(row, Column(column))->setEnabled(on);
    }
    refreshButtons();
}

void VocabularyTab::refreshButtons() {
    m_remove->setEnabled(selectedIndex().has_value());
    m_moveUp->setEnabled(canMove(-1));
    m_moveDown->setEnabled(canMove(+1));
    m_export->setEnabled(!m_store.rules().isEmpty());
}

void VocabularyTab::selectionChangedInTable() {
    const QModelIndexList rows = m_table->selectionModel()->selectedRows();
    if (rows.isEmpty() || rows.first().row() >= m_rowIds.size())
        m_selection.reset();
    else
        m_selection = m_rowIds.at(rows.first().row());
    refreshButtons();
}

bool VocabularyTab::eventFilter(QObject* watched, QEvent* event) {
    // Working in a row's field selects that row, as clicking the row itself would.
    if (event->type() == QEvent::FocusIn) {
        const QVariant id = watched->property(ruleIdProperty);
        if (id.isValid() && m_selection != id.toUuid()) select(id.toUuid());
    }
    return QWidget::eventFilter(watched, event);
}

std::optional<int> VocabularyTab::selectedIndex() const {
    if (!m_selection) return std::nullopt;
    const QList<ReplacementRule>& rules = m_store.rules();
    for (int i = 0; i < rules.size(); ++i)
        if (rules.at(i).id == *m_selection) return i;
    return std::nullopt;
}

bool VocabularyTab::canMove(int by) const {
    const std::optional<int> index = selectedIndex();
    if (!index) return false;
    const int target = *index + by;
    if (target < 0) return false;
    return target < m_store.rules().size();
}

template <typename Edit> void VocabularyTab::editRule(const QUuid& id, Edit edit) {
    QList<ReplacementRule> rules = m_store.rules();
    for (ReplacementRule& rule : rules)
        if (rule.id == id) edit(rule);
    m_store.setRules(rules);
}

void VocabularyTab::addRule() {
    QList<ReplacementRule> rules = m_store.rules();
    rules.append(ReplacementRule::create());
    m_store.setRules(rules);
}

void VocabularyTab::removeRule() {
    if (!m_selection) return;
    const QUuid id = *m_selection;
    QList<ReplacementRule> rules = m_store.rules();
    rules.removeIf([&](const ReplacementRule& rule) { return rule.id == id; });
    m_selection.reset();
    m_store.setRules(rules);
    select(std::nullopt);
}

void VocabularyTab::moveRule(int by) {
    if (!canMove(by)) return;
    const int index = *selectedIndex();
    QList<ReplacementRule> rules = m_store.rules();
    rules.swapItemsAt(index, index + by);
    // The selection is kept by id, so it follows the rule to its new row.
    m_store.setRules(rules);
}

void VocabularyTab::importRules() {
    const std::optional<QString> path =
        m_dialogs.openPath(this, QStringLiteral("Import Vocabulary"), jsonFilter);
    if (!path) return;
    QFile file(*path);
    // The tab shows no errors: an unreadable or malformed file leaves the vocabulary as it was
    // (all or nothing: one bad rule rejects the whole file).
    if (!file.open(QIODevice::ReadOnly)) return;
    m_store.importJSON(file.readAll());
}

void VocabularyTab::exportRules() {
    const std::optional<QByteArray> bytes = m_store.exportJSON();
    if (!bytes) return;
    const std::optional<QString> path = m_dialogs.savePath(this, QStringLiteral("Export Vocabulary"),
                                                           ReplacementStore::suggestedFileName, jsonFilter);
    if (!path) return;
    QFile file(*path);
    // A failed write is not reported, like a failed import.
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) file.write(*bytes);
}

} // namespace murmurly
