#pragma once

#include <QList>
#include <QUuid>
#include <QWidget>

#include <optional>

class QCheckBox;
class QLineEdit;
class QTableWidget;
class QToolButton;
class QPushButton;

namespace murmurly {

class AppController;
class FileDialogs;
class ReplacementStore;

// The Vocabulary tab: the replacement switch, the ordered rules edited in place (every keystroke
// is stored), adding, removing and reordering rules, and the vocabulary file's import and export.
// The only state of its own is which rule is selected, kept by id.
class VocabularyTab : public QWidget {
    Q_OBJECT

public:
    // Table columns, in order.
    enum Column { replaceColumn, withColumn, wholeWordColumn, caseColumn, onColumn, columnCount };

    VocabularyTab(AppController& controller, FileDialogs& dialogs, QWidget* parent = nullptr);

    std::optional<QUuid> selection() const { return m_selection; }
    // Selects the rule with this id (none clears the selection).
    void select(const std::optional<QUuid>& id);

    // The editor of `column` in `row`: a QLineEdit for the two texts, a QCheckBox for the rest.
    QWidget* editor(int row, Column column) const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void rulesChanged();
    void rebuildRows();
    void updateRows();
    void refreshButtons();
    void selectionChangedInTable();
    std::optional<int> selectedIndex() const;
    bool canMove(int by) const;

    void addRule();
    void removeRule();
    void moveRule(int by);
    void importRules();
    void exportRules();

    // Applies `edit` to the rule with `id` and stores the list.
    template <typename Edit> void editRule(const QUuid& id, Edit edit);

    ReplacementStore& m_store;
    FileDialogs& m_dialogs;
    std::optional<QUuid> m_selection;
    QList<QUuid> m_rowIds; // the rule shown in each row

    QCheckBox* m_enabled = nullptr;
    QTableWidget* m_table = nullptr;
    QToolButton* m_add = nullptr;
    QToolButton* m_remove = nullptr;
    QToolButton* m_moveUp = nullptr;
    QToolButton* m_moveDown = nullptr;
    QPushButton* m_import = nullptr;
    QPushButton* m_export = nullptr;
};

} // namespace murmurly
