#include "settings/VocabularyTab.h"
#include "ControllerHarness.h"
#include "KeyboardReach.h"
#include "ScriptedFileDialogs.h"
#include "TabScreenshot.h"
#include "TabTestSupport.h"
#include "output/ReplacementStore.h"

#include <QCheckBox>
#include <QFile>
#include <QImage>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::child;
using murmurly::testing::ControllerHarness;
using murmurly::testing::otherWindows;
using murmurly::testing::ScriptedFileDialogs;
using murmurly::testing::showTab;

namespace {

class VocabularyTabTest : public ::testing::Test {
protected:
    ReplacementStore& store() { return harness.controller().replacements(); }

    static ReplacementRule rule(const QString& from, const QString& to) {
        ReplacementRule r = ReplacementRule::create();
        r.from = from;
        r.to = to;
        return r;
    }

    std::unique_ptr<VocabularyTab> makeTab() {
        return showTab(std::make_unique<VocabularyTab>(harness.controller(), dialogs));
    }

    static QLineEdit* field(VocabularyTab& tab, int row, VocabularyTab::Column column) {
        return qobject_cast<QLineEdit*>(tab.editor(row, column));
    }
    static QCheckBox* box(VocabularyTab& tab, int row, VocabularyTab::Column column) {
        return qobject_cast<QCheckBox*>(tab.editor(row, column));
    }

    QStringList froms() {
        QStringList list;
        for (const ReplacementRule& r : store().rules())
            list << r.from;
        return list;
    }

    QString writeFile(const QString& name, const QByteArray& bytes) {
        const QString path = dir.filePath(name);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        return path;
    }

    ControllerHarness harness;
    ScriptedFileDialogs dialogs;
    QTemporaryDir dir;
};

TEST_F(VocabularyTabTest, WithNoRuleSelectedMinusUpAndDownAreDisabled) {
    store().setEnabled(true);
    store().setRules({rule("a", "A"), rule("b", "B")});
    auto tab = makeTab();
    EXPECT_FALSE(tab->selection().has_value());
    EXPECT_TRUE(child<QToolButton>(*tab, "addRule")->isEnabled());
    EXPECT_FALSE(child<QToolButton>(*tab, "removeRule")->isEnabled());
    EXPECT_FALSE(child<QToolButton>(*tab, "moveRuleUp")->isEnabled());
    EXPECT_FALSE(child<QToolButton>(*tab, "moveRuleDown")->isEnabled());
}

TEST_F(VocabularyTabTest, FirstSelectedDisablesUpLastSelectedDisablesDownAndASingleRuleDisablesBoth) {
    store().setEnabled(true);
    store().setRules({rule("a", "A"), rule("b", "B"), rule("c", "C")});
    auto tab = makeTab();
    auto* up = child<QToolButton>(*tab, "moveRuleUp");
    auto* down = child<QToolButton>(*tab, "moveRuleDown");
    auto* minus = child<QToolButton>(*tab, "removeRule");

    // Selecting by keyboard: focus the table and move through it.
    auto* table = child<QTableWidget>(*tab, "rules");
    table->setFocus();
    table->selectRow(0);
    EXPECT_EQ(tab->selection(), store().rules().at(0).id);
    EXPECT_FALSE(up->isEnabled());
    EXPECT_TRUE(down->isEnabled());
    EXPECT_TRUE(minus->isEnabled());

    QTest::keyClick(table, Qt::Key_Down);
    EXPECT_EQ(tab->selection(), store().rules().at(1).id);
    EXPECT_TRUE(up->isEnabled());
    EXPECT_TRUE(down->isEnabled());

    QTest::keyClick(table, Qt::Key_Down);
    EXPECT_EQ(tab->selection(), store().rules().at(2).id);
    EXPECT_TRUE(up->isEnabled());
    EXPECT_FALSE(down->isEnabled());

    store().setRules({rule("only", "one")});
    tab->select(store().rules().at(0).id);
    EXPECT_FALSE(up->isEnabled());
    EXPECT_FALSE(down->isEnabled());
    EXPECT_TRUE(minus->isEnabled());
}

TEST_F(VocabularyTabTest, WithAnEmptyListExportIsDisabledAndImportEnabled) {
    auto tab = makeTab();
    auto* exportButton = child<QPushButton>(*tab, "exportRules");
    auto* importButton = child<QPushButton>(*tab, "importRules");
    EXPECT_EQ(exportButton->text(), QStringLiteral("Export\u2026"));
    EXPECT_EQ(importButton->text(), QStringLiteral("Import\u2026"));
    EXPECT_FALSE(exportButton->isEnabled());
    EXPECT_TRUE(importButton->isEnabled());
    QTest::mouseClick(child<QToolButton>(*tab, "addRule"), Qt::LeftButton);
    EXPECT_TRUE(exportButton->isEnabled());
}

TEST_F(VocabularyTabTest, TurningReplacementsOffGreysOutEveryRowButKeepsTheRulesAndTheirOrder) {
    store().setEnabled(true);
    store().setRules({rule("one", "1"), rule("two", "2")});
    auto tab = makeTab();
    auto* toggle = child<QCheckBox>(*tab, "replacementsEnabled");
    EXPECT_EQ(toggle->text(), QStringLiteral("Enable text replacements"));
    ASSERT_TRUE(toggle->isChecked());
    for (int row = 0; row < 2; ++row)
        for (int column = 0; column < VocabularyTab::columnCount; ++column)
            EXPECT_TRUE(tab->editor(row, VocabularyTab::Column(column))->isEnabled());

    toggle->setFocus();
    QTest::keyClick(toggle, Qt::Key_Space);

    EXPECT_FALSE(store().enabled());
    EXPECT_EQ(harness.defaults.boolValue(ReplacementStore::enabledKey), false);
    EXPECT_EQ(froms(), (QStringList{"one", "two"}));
    auto* table = child<QTableWidget>(*tab, "rules");
    EXPECT_EQ(table->rowCount(), 2);
    EXPECT_TRUE(table->isVisibleTo(tab.get()));
    for (int row = 0; row < 2; ++row)
        for (int column = 0; column < VocabularyTab::columnCount; ++column)
            EXPECT_FALSE(tab->editor(row, VocabularyTab::Column(column))->isEnabled())
                << row << ":" << column;
    EXPECT_EQ(field(*tab, 0, VocabularyTab::replaceColumn)->text(), QStringLiteral("one"));
    EXPECT_EQ(field(*tab, 1, VocabularyTab::replaceColumn)->text(), QStringLiteral("two"));
}

TEST_F(VocabularyTabTest, PressingPlusTwiceAddsTwoEmptyRulesAtTheEndThatChangeNothing) {
    store().setEnabled(true);
    store().setRules({rule("teh", "the")});
    auto tab = makeTab();
    tab->select(store().rules().at(0).id);
    auto* plus = child<QToolButton>(*tab, "addRule");
    QTest::mouseClick(plus, Qt::LeftButton);
    plus->setFocus();
    QTest::keyClick(plus, Qt::Key_Space);

    ASSERT_EQ(store().rules().size(), 3);
    EXPECT_EQ(store().rules().at(0).from, QStringLiteral("teh"));
    for (int i = 1; i < 3; ++i) {
        const ReplacementRule& added = store().rules().at(i);
        EXPECT_TRUE(added.from.isEmpty());
        EXPECT_TRUE(added.to.isEmpty());
        EXPECT_TRUE(added.matchWholeWord);
        EXPECT_FALSE(added.caseSensitive);
        EXPECT_TRUE(added.enabled);
    }
    EXPECT_NE(store().rules().at(1).id, store().rules().at(2).id);
    // The selection stays where it was.
    EXPECT_EQ(tab->selection(), store().rules().at(0).id);
    // Stored at once.
    const auto stored =
        ReplacementRule::decodeArray(*harness.defaults.bytesValue(ReplacementStore::rulesKey));
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(stored->size(), 3);
    // The new rows show their placeholders, and rules without "from" leave a dictation alone.
    EXPECT_EQ(field(*tab, 2, VocabularyTab::replaceColumn)->placeholderText(), QStringLiteral("from"));
    EXPECT_EQ(field(*tab, 2, VocabularyTab::withColumn)->placeholderText(), QStringLiteral("to"));
    EXPECT_EQ(store().apply(QStringLiteral("fix teh text")), QStringLiteral("fix the text"));
    store().setRules({store().rules().at(1), store().rules().at(2)});
    EXPECT_EQ(store().apply(QStringLiteral("fix teh text")), QStringLiteral("fix teh text"));
}

TEST_F(VocabularyTabTest, TypingInARuleStoresEveryKeystrokeAndKeepsTheFocus) {
    store().setEnabled(true);
    store().setRules({rule("", "")});
    auto tab = makeTab();
    QLineEdit* from = field(*tab, 0, VocabularyTab::replaceColumn);
    from->setFocus();
    QTest::keyClick(from, Qt::Key_G);
    EXPECT_EQ(store().rules().at(0).from, QStringLiteral("g"));
    QTest::keyClicks(from, QStringLiteral("ithub"));
    EXPECT_EQ(store().rules().at(0).from, QStringLiteral("github"));
    EXPECT_EQ(QApplication::focusWidget(), from);
    // Working in a row selects it.
    EXPECT_EQ(tab->selection(), store().rules().at(0).id);

    QTest::keyClick(from, Qt::Key_Tab);
    QLineEdit* to = field(*tab, 0, VocabularyTab::withColumn);
    EXPECT_EQ(QApplication::focusWidget(), to);
    QTest::keyClicks(to, QStringLiteral("GitHub"));
    EXPECT_EQ(store().rules().at(0).to, QStringLiteral("GitHub"));
    const auto stored =
        ReplacementRule::decodeArray(*harness.defaults.bytesValue(ReplacementStore::rulesKey));
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(stored->at(0).to, QStringLiteral("GitHub"));
}

TEST_F(VocabularyTabTest, TheRowCheckboxesWriteIntoTheirRule) {
    store().setEnabled(true);
    store().setRules({rule("a", "b")});
    auto tab = makeTab();
    QTest::mouseClick(box(*tab, 0, VocabularyTab::wholeWordColumn), Qt::LeftButton);
    QTest::mouseClick(box(*tab, 0, VocabularyTab::caseColumn), Qt::LeftButton);
    QCheckBox* on = box(*tab, 0, VocabularyTab::onColumn);
    on->setFocus();
    QTest::keyClick(on, Qt::Key_Space);
    const ReplacementRule& r = store().rules().at(0);
    EXPECT_FALSE(r.matchWholeWord);
    EXPECT_TRUE(r.caseSensitive);
    EXPECT_FALSE(r.enabled);
    EXPECT_TRUE(box(*tab, 0, VocabularyTab::wholeWordColumn)->accessibleName().startsWith("Whole word"));
}

TEST_F(VocabularyTabTest, MovingARuleSwapsItWithItsNeighbourAndTheSelectionFollows) {
    store().setEnabled(true);
    store().setRules({rule("a", ""), rule("b", ""), rule("c", "")});
    auto tab = makeTab();
    const QUuid b = store().rules().at(1).id;
    tab->select(b);
    QTest::mouseClick(child<QToolButton>(*tab, "moveRuleDown"), Qt::LeftButton);
    EXPECT_EQ(froms(), (QStringList{"a", "c", "b"}));
    EXPECT_EQ(tab->selection(), b);
    EXPECT_FALSE(child<QToolButton>(*tab, "moveRuleDown")->isEnabled());
    EXPECT_EQ(field(*tab, 2, VocabularyTab::replaceColumn)->text(), QStringLiteral("b"));
    auto* up = child<QToolButton>(*tab, "moveRuleUp");
    QTest::mouseClick(up, Qt::LeftButton);
    QTest::mouseClick(up, Qt::LeftButton);
    EXPECT_EQ(froms(), (QStringList{"b", "a", "c"}));
    EXPECT_EQ(tab->selection(), b);
    EXPECT_FALSE(up->isEnabled());
    const auto stored =
        ReplacementRule::decodeArray(*harness.defaults.bytesValue(ReplacementStore::rulesKey));
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(stored->at(0).from, QStringLiteral("b"));
}

TEST_F(VocabularyTabTest, MinusRemovesTheSelectedRuleAndClearsTheSelection) {
    store().setEnabled(true);
    store().setRules({rule("a", ""), rule("b", "")});
    auto tab = makeTab();
    tab->select(store().rules().at(0).id);
    QTest::mouseClick(child<QToolButton>(*tab, "removeRule"), Qt::LeftButton);
    EXPECT_EQ(froms(), QStringList{"b"});
    EXPECT_FALSE(tab->selection().has_value());
    EXPECT_FALSE(child<QToolButton>(*tab, "removeRule")->isEnabled());
    EXPECT_EQ(child<QTableWidget>(*tab, "rules")->rowCount(), 1);
}

TEST_F(VocabularyTabTest, ChangesMadeElsewhereShowAtOnce) {
    auto tab = makeTab();
    store().setRules({rule("x", "y")});
    EXPECT_EQ(child<QTableWidget>(*tab, "rules")->rowCount(), 1);
    EXPECT_EQ(field(*tab, 0, VocabularyTab::withColumn)->text(), QStringLiteral("y"));
    store().setEnabled(true);
    EXPECT_TRUE(child<QCheckBox>(*tab, "replacementsEnabled")->isChecked());
    EXPECT_TRUE(field(*tab, 0, VocabularyTab::withColumn)->isEnabled());
}

TEST_F(VocabularyTabTest, ImportingAMalformedFileChangesNothingAndSaysSo) {
    store().setEnabled(true);
    store().setRules({rule("keep", "me")});
    const QByteArray storedBefore = *harness.defaults.bytesValue(ReplacementStore::rulesKey);
    auto tab = makeTab();
    const QList<QByteArray> malformed{
        "this is not JSON",
        R"({"from":"a"})",
        // One object lacks "caseSensitive": the whole file is refused.
        R"([{"id":"6F1B0C4E-7D8A-4E0B-9A51-2C3D4E5F6A7B","from":"a","to":"b","matchWholeWord":true,"enabled":true}])",
    };
    for (qsizetype i = 0; i < malformed.size(); ++i) {
        dialogs.openAnswer = writeFile(QStringLiteral("bad%1.json").arg(i), malformed.at(i));
        QTest::mouseClick(child<QPushButton>(*tab, "importRules"), Qt::LeftButton);
        EXPECT_EQ(froms(), QStringList{"keep"}) << i;
        EXPECT_EQ(*harness.defaults.bytesValue(ReplacementStore::rulesKey), storedBefore) << i;
        EXPECT_EQ(field(*tab, 0, VocabularyTab::replaceColumn)->text(), QStringLiteral("keep"));
        EXPECT_TRUE(otherWindows(*tab).isEmpty()) << i;
    }
    EXPECT_EQ(dialogs.lastFilter, QStringLiteral("JSON files (*.json)"));
    EXPECT_TRUE(store().enabled());
}

TEST_F(VocabularyTabTest, ImportingAFileThatCannotBeReadChangesNothingAndShowsNothing) {
    store().setRules({rule("keep", "me")});
    auto tab = makeTab();
    dialogs.openAnswer = dir.filePath(QStringLiteral("missing.json"));
    QTest::mouseClick(child<QPushButton>(*tab, "importRules"), Qt::LeftButton);
    EXPECT_EQ(froms(), QStringList{"keep"});
    EXPECT_TRUE(otherWindows(*tab).isEmpty());
}

TEST_F(VocabularyTabTest, CancellingImportChangesNothingAndShowsNothing) {
    store().setRules({rule("keep", "me")});
    auto tab = makeTab();
    dialogs.openAnswer.reset();
    QTest::mouseClick(child<QPushButton>(*tab, "importRules"), Qt::LeftButton);
    EXPECT_EQ(dialogs.openTitles.size(), 1);
    EXPECT_EQ(froms(), QStringList{"keep"});
    EXPECT_TRUE(otherWindows(*tab).isEmpty());
}

TEST_F(VocabularyTabTest, ExportWritesTheVocabularyFileAndImportReadsItBack) {
    store().setEnabled(true);
    store().setRules({rule("teh", "the"), rule("kubernetes", "Kubernetes")});
    const QList<ReplacementRule> original = store().rules();
    auto tab = makeTab();
    const QString path = dir.filePath(QStringLiteral("out.json"));
    writeFile(QStringLiteral("out.json"), QByteArray(4096, 'x')); // an existing, longer file is replaced
    dialogs.saveAnswer = path;
    QTest::mouseClick(child<QPushButton>(*tab, "exportRules"), Qt::LeftButton);
    EXPECT_EQ(dialogs.saveSuggestions, QStringList{"murmurly-vocabulary.json"});
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), *store().exportJSON());
    file.close();

    store().setRules({});
    EXPECT_EQ(child<QTableWidget>(*tab, "rules")->rowCount(), 0);
    dialogs.openAnswer = path;
    QTest::mouseClick(child<QPushButton>(*tab, "importRules"), Qt::LeftButton);
    EXPECT_EQ(store().rules(), original);
    EXPECT_EQ(child<QTableWidget>(*tab, "rules")->rowCount(), 2);
    EXPECT_EQ(field(*tab, 1, VocabularyTab::withColumn)->text(), QStringLiteral("Kubernetes"));
    EXPECT_TRUE(otherWindows(*tab).isEmpty());
}

TEST_F(VocabularyTabTest, EveryControlHasAnAccessibleNameAndTabReachesIt) {
    store().setEnabled(true);
    store().setRules({rule("a", "b"), rule("c", "d")});
    auto tab = makeTab();
    tab->select(store().rules().at(0).id);
    // Walking the rows by Tab selects each row in turn, and passing the last one disables "Move
    // Down" for the moment the walk goes by it; it is checked with the first row selected instead.
    auto* moveDown = child<QToolButton>(*tab, "moveRuleDown");
    murmurly::testing::expectKeyboardAndNames(*tab, {moveDown});
    tab->select(store().rules().at(0).id);
    auto* remove = child<QToolButton>(*tab, "removeRule");
    remove->setFocus(Qt::TabFocusReason);
    ASSERT_FALSE(child<QToolButton>(*tab, "moveRuleUp")->isEnabled());
    QTest::keyClick(remove, Qt::Key_Tab);
    EXPECT_EQ(QApplication::focusWidget(), moveDown);
    QTest::keyClick(moveDown, Qt::Key_Space);
    EXPECT_EQ(froms(), (QStringList{"c", "a"}));
}

TEST_F(VocabularyTabTest, Screenshot) {
    store().setEnabled(true);
    ReplacementRule off = rule("gonna", "going to");
    off.enabled = false;
    ReplacementRule exact = rule("API", "API");
    exact.caseSensitive = true;
    store().setRules({rule("teh", "the"), rule("kubernetes", "Kubernetes"), off, exact, rule("", "")});
    VocabularyTab tab(harness.controller(), dialogs);
    tab.select(store().rules().at(1).id);
    const QString path = murmurly::testing::saveTabScreenshot(tab, QStringLiteral("vocabulary-tab"));
    ASSERT_FALSE(path.isEmpty());
    EXPECT_EQ(QImage(path).size(), murmurly::testing::tabAreaSize);
    // What the picture shows: the five rows, the second one's words drawn in its fields.
    auto* table = child<QTableWidget>(tab, "rules");
    ASSERT_TRUE(murmurly::testing::shown(tab, table));
    EXPECT_EQ(table->rowCount(), 5);
    auto* from = qobject_cast<QLineEdit*>(table->cellWidget(1, 0));
    auto* to = qobject_cast<QLineEdit*>(table->cellWidget(1, 1));
    ASSERT_NE(from, nullptr);
    ASSERT_NE(to, nullptr);
    EXPECT_EQ(from->text(), QStringLiteral("kubernetes"));
    EXPECT_EQ(to->text(), QStringLiteral("Kubernetes"));
    EXPECT_TRUE(murmurly::testing::picturesSomethingIn(path, murmurly::testing::areaIn(tab, *from)));
    EXPECT_TRUE(murmurly::testing::picturesSomethingIn(path, murmurly::testing::areaIn(tab, *to)));
    EXPECT_TRUE(
        QRect(QPoint(0, 0), murmurly::testing::tabAreaSize).contains(murmurly::testing::areaIn(tab, *to)));
}

} // namespace
