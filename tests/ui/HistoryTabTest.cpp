#include "settings/HistoryTab.h"
#include "ControllerHarness.h"
#include "FakeFocusReturn.h"
#include "KeyboardReach.h"
#include "LogCapture.h"
#include "ScriptedFileDialogs.h"
#include "TabScreenshot.h"
#include "TabTestSupport.h"
#include "TemporaryHome.h"
#include "XTestPointer.h"
#include "core/ReferenceDate.h"
#include "records/HistoryStore.h"
#include "settings/HistoryEntryDelegate.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDir>
#include <QFile>
#include <QGroupBox>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::child;
using murmurly::testing::ControllerHarness;
using murmurly::testing::FakeFocusReturn;
using murmurly::testing::LogCapture;
using murmurly::testing::otherWindows;
using murmurly::testing::ScriptedFileDialogs;
using murmurly::testing::shown;
using murmurly::testing::showTab;
using murmurly::testing::TemporaryHome;
using murmurly::testing::XTestPointer;

namespace {

const QString noProvider = QStringLiteral("\u2014");

class HistoryTabTest : public ::testing::Test {
protected:
    HistoryTabTest() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }
    ~HistoryTabTest() override { QLocale::setDefault(QLocale::system()); }

    HistoryStore& store() { return harness.controller().history(); }

    // An entry recorded `minutesAgo` before the harness's present.
    HistoryEntry entry(const QString& raw, std::optional<QString> cleaned = std::nullopt,
                       QString provider = QStringLiteral("Claude (Anthropic)"),
                       std::optional<QString> app = std::nullopt, int minutesAgo = 0) {
        return HistoryEntry{QUuid::createUuid(),
                            ReferenceDate::seconds(harness.clock.now()) - minutesAgo * 60.0,
                            raw,
                            std::move(cleaned),
                            std::move(provider),
                            std::move(app)};
    }

    void setEntries(const QList<HistoryEntry>& entries) {
        store().setEntries(entries);
        store().save();
    }

    // From now on, `pasted` collects the clipboard's text at each paste chord.
    void recordPastes() {
        harness.pasteKeys.onPaste = [this] { pasted << harness.clipboard.text(); };
    }

    std::unique_ptr<HistoryTab> makeTab() {
        return showTab(std::make_unique<HistoryTab>(harness.controller(), dialogs));
    }

    static QString stepperText(QWidget& tab, const char* name) {
        return child<QSpinBox>(tab, name)->findChild<QLineEdit*>()->text();
    }

    static QStringList rowTexts(QWidget& tab) {
        QStringList texts;
        auto* list = child<QListWidget>(tab, "entries");
        for (int i = 0; i < list->count(); ++i)
            texts << list->item(i)->text();
        return texts;
    }

    static QString header(QWidget& tab, int row) {
        return child<QListWidget>(tab, "entries")
            ->item(row)
            ->data(HistoryEntryDelegate::headerRole)
            .toString();
    }

    // Opens the context menu of `row` as a right click does, and returns it (shown, not waited on).
    static QMenu* openMenu(QWidget& tab, int row) {
        auto* list = child<QListWidget>(tab, "entries");
        const QPoint point = list->visualItemRect(list->item(row)).center();
        QContextMenuEvent event(QContextMenuEvent::Mouse, point, list->viewport()->mapToGlobal(point));
        QApplication::sendEvent(list->viewport(), &event);
        auto* menu = tab.findChild<QMenu*>(QStringLiteral("entryMenu"));
        EXPECT_NE(menu, nullptr);
        return menu;
    }

    static QStringList actionTexts(QMenu* menu) {
        QStringList texts;
        for (QAction* action : menu->actions())
            texts << (action->isSeparator() ? QStringLiteral("---") : action->text());
        return texts;
    }

    static void choose(QMenu* menu, const QString& text) {
        for (QAction* action : menu->actions())
            if (action->text() == text) {
                action->trigger();
                menu->close();
                QApplication::processEvents();
                return;
            }
        ADD_FAILURE() << "no menu item " << text.toStdString();
    }

    QByteArray fileBytes() {
        QFile file(harness.historyFilePath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    TemporaryHome home; // the desktop entries the header looks up
    ControllerHarness harness;
    ScriptedFileDialogs dialogs;
    QStringList pasted;
};

TEST_F(HistoryTabTest, WithHistoryOffTheRetentionSectionIsHiddenButEntriesAreListedAndCanBeDeleted) {
    setEntries({entry("second"), entry("first", std::nullopt, noProvider, std::nullopt, 5)});
    ASSERT_FALSE(store().enabled());
    auto tab = makeTab();
    auto* toggle = child<QCheckBox>(*tab, "historyEnabled");
    EXPECT_EQ(toggle->text(), QStringLiteral("Keep a local history of dictations"));
    EXPECT_FALSE(toggle->isChecked());
    EXPECT_EQ(child<QLabel>(*tab, "historyExplanation")->text(),
              QStringLiteral(
                  "Off by default. Stored only on this computer (~/.local/share/murmurly), never synced. "
                  "Transcripts can be sensitive."));
    EXPECT_FALSE(shown(*tab, child<QGroupBox>(*tab, "retention")));
    EXPECT_EQ(rowTexts(*tab), (QStringList{"second", "first"}));

    choose(openMenu(*tab, 0), QStringLiteral("Delete"));
    EXPECT_EQ(rowTexts(*tab), QStringList{"first"});
    EXPECT_EQ(store().entries().size(), 1);
    const auto onDisk = HistoryStore::decodeEntries(fileBytes());
    ASSERT_TRUE(onDisk.has_value());
    ASSERT_EQ(onDisk->size(), 1);
    EXPECT_EQ(onDisk->first().rawText, QStringLiteral("first"));

    // Switching history on shows the retention section and stores the switch.
    toggle->setFocus();
    QTest::keyClick(toggle, Qt::Key_Space);
    EXPECT_TRUE(store().enabled());
    EXPECT_EQ(harness.defaults.boolValue(HistoryStore::enabledKey), true);
    EXPECT_TRUE(shown(*tab, child<QGroupBox>(*tab, "retention")));
}

TEST_F(HistoryTabTest, StepperLabelsShowInfinityNoAgeLimitAndDays) {
    store().setEnabled(true);
    store().setKeepLast(0);
    store().setMaxAgeDays(0);
    auto tab = makeTab();
    EXPECT_EQ(stepperText(*tab, "keepLast"), QStringLiteral("Keep last \u221E entries"));
    EXPECT_EQ(stepperText(*tab, "maxAgeDays"), QStringLiteral("No age limit"));

    store().setMaxAgeDays(7);
    store().setKeepLast(100);
    EXPECT_EQ(stepperText(*tab, "maxAgeDays"), QStringLiteral("Delete after 7 days"));
    EXPECT_EQ(stepperText(*tab, "keepLast"), QStringLiteral("Keep last 100 entries"));
    store().setKeepLast(5000);
    EXPECT_EQ(stepperText(*tab, "keepLast"), QStringLiteral("Keep last 5000 entries"));
}

TEST_F(HistoryTabTest, SteppersMoveByTheirStepWithinTheirRangeAndWriteThroughTheStore) {
    store().setEnabled(true);
    auto tab = makeTab();
    auto* keepLast = child<QSpinBox>(*tab, "keepLast");
    auto* maxAge = child<QSpinBox>(*tab, "maxAgeDays");
    EXPECT_EQ(keepLast->minimum(), 0);
    EXPECT_EQ(keepLast->maximum(), 5000);
    EXPECT_EQ(maxAge->minimum(), 0);
    EXPECT_EQ(maxAge->maximum(), 365);

    keepLast->setFocus();
    QTest::keyClick(keepLast, Qt::Key_Up);
    EXPECT_EQ(store().keepLast(), 125);
    EXPECT_EQ(harness.defaults.intValue(HistoryStore::keepLastKey), 125);
    for (int i = 0; i < 5; ++i)
        QTest::keyClick(keepLast, Qt::Key_Down);
    EXPECT_EQ(store().keepLast(), 0);
    EXPECT_EQ(stepperText(*tab, "keepLast"), QStringLiteral("Keep last \u221E entries"));

    maxAge->setFocus();
    QTest::keyClick(maxAge, Qt::Key_Up);
    EXPECT_EQ(store().maxAgeDays(), 1);
    EXPECT_EQ(stepperText(*tab, "maxAgeDays"), QStringLiteral("Delete after 1 days"));
    QTest::keyClick(maxAge, Qt::Key_Down);
    EXPECT_EQ(store().maxAgeDays(), 0);
}

TEST_F(HistoryTabTest, LoweringKeepLastPrunesTheListAtOnce) {
    store().setEnabled(true);
    setEntries({entry("c"), entry("b", {}, noProvider, {}, 1), entry("a", {}, noProvider, {}, 2)});
    auto tab = makeTab();
    store().setKeepLast(2);
    EXPECT_EQ(rowTexts(*tab), (QStringList{"c", "b"}));
}

TEST_F(HistoryTabTest, AnEmptyHistoryShowsNoDictationsYetAndADisabledClearAll) {
    auto tab = makeTab();
    auto* empty = child<QLabel>(*tab, "emptyHistory");
    EXPECT_TRUE(shown(*tab, empty));
    EXPECT_EQ(empty->text(), QStringLiteral("No dictations recorded yet."));
    EXPECT_FALSE(shown(*tab, child<QListWidget>(*tab, "entries")));
    EXPECT_FALSE(child<QPushButton>(*tab, "clearAll")->isEnabled());
}

TEST_F(HistoryTabTest, ASearchWithNoHitsShowsNoMatchesWhileClearAllStaysEnabled) {
    setEntries({entry("hello world")});
    auto tab = makeTab();
    auto* search = child<QLineEdit>(*tab, "search");
    EXPECT_EQ(search->placeholderText(), QStringLiteral("Search history"));
    search->setFocus();
    QTest::keyClicks(search, QStringLiteral("zebra"));
    auto* empty = child<QLabel>(*tab, "emptyHistory");
    EXPECT_TRUE(shown(*tab, empty));
    EXPECT_EQ(empty->text(), QStringLiteral("No matches."));
    EXPECT_TRUE(child<QPushButton>(*tab, "clearAll")->isEnabled());
}

TEST_F(HistoryTabTest, SearchFiltersByRawAndFinalTextIgnoringCaseAndSurroundingSpaces) {
    setEntries({entry("meeting at noon", QStringLiteral("Meeting at noon.")), entry("buy milk"),
                entry("call mom", QStringLiteral("Call Mom about the MEETING."))});
    auto tab = makeTab();
    auto* search = child<QLineEdit>(*tab, "search");
    search->setFocus();
    QTest::keyClicks(search, QStringLiteral("  meeting "));
    EXPECT_EQ(rowTexts(*tab), (QStringList{"Meeting at noon.", "Call Mom about the MEETING."}));
    search->clear();
    QTest::keyClicks(search, QStringLiteral("   "));
    EXPECT_EQ(rowTexts(*tab).size(), 3);
    search->clear();
    QTest::keyClicks(search, QStringLiteral("MILK"));
    EXPECT_EQ(rowTexts(*tab), QStringList{"buy milk"});
    // Entries recorded while searching are filtered too.
    store().setEnabled(true);
    store().record(entry("more milk"));
    EXPECT_EQ(rowTexts(*tab), (QStringList{"more milk", "buy milk"}));
}

TEST_F(HistoryTabTest, AnEntryWithoutCleanupShowsItsRawTextHasNoCopyRawAndCopyCopiesTheRawText) {
    setEntries({entry("plain words", std::nullopt, noProvider)});
    auto tab = makeTab();
    EXPECT_EQ(rowTexts(*tab), QStringList{"plain words"});
    QMenu* menu = openMenu(*tab, 0);
    EXPECT_EQ(actionTexts(menu), (QStringList{"Copy", "Re-insert", "---", "Delete"}));
    QApplication::clipboard()->setText(QStringLiteral("something else"));
    choose(menu, QStringLiteral("Copy"));
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("plain words"));
}

TEST_F(HistoryTabTest, ACleanedEntryCopiesItsFinalTextAndCopyRawCopiesWhatWasHeard) {
    setEntries({entry("um so hello there", QStringLiteral("So, hello there."))});
    auto tab = makeTab();
    EXPECT_EQ(rowTexts(*tab), QStringList{"So, hello there."});
    QMenu* menu = openMenu(*tab, 0);
    EXPECT_EQ(actionTexts(menu), (QStringList{"Copy", "Copy Raw", "Re-insert", "---", "Delete"}));
    choose(menu, QStringLiteral("Copy Raw"));
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("um so hello there"));
    choose(openMenu(*tab, 0), QStringLiteral("Copy"));
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("So, hello there."));
}

TEST_F(HistoryTabTest, ReInsertPastesTheEntryThroughTheController) {
    setEntries({entry("um so hello", QStringLiteral("So, hello.")), entry("older raw only")});
    auto tab = makeTab();
    ASSERT_EQ(harness.pasteKeys.chords, 0);
    choose(openMenu(*tab, 0), QStringLiteral("Re-insert"));
    harness.settle();
    EXPECT_EQ(harness.pasteKeys.chords, 1);
    // The final text went onto the clipboard for the chord, without a trailing space.
    EXPECT_EQ(harness.clipboard.operations.mid(0, 2), (QStringList{"snapshot", "write"}));
    harness.pasteKeys.onPaste = [&] {
        EXPECT_EQ(harness.clipboard.text(), QStringLiteral("older raw only"));
    };
    harness.advance(std::chrono::milliseconds(500));
    choose(openMenu(*tab, 1), QStringLiteral("Re-insert"));
    harness.settle();
    EXPECT_EQ(harness.pasteKeys.chords, 2);
    harness.advance(std::chrono::milliseconds(500));
    // Re-inserting records nothing new.
    EXPECT_EQ(store().entries().size(), 2);
}

TEST_F(HistoryTabTest, ReInsertGivesTheFocusBackBeforePasting) {
    setEntries({entry("um so hello", QStringLiteral("So, hello."))});
    FakeFocusReturn focus(harness.clock);
    focus.takes = std::chrono::milliseconds(40);
    auto tab = showTab(std::make_unique<HistoryTab>(harness.controller(), dialogs, focus));
    recordPastes();

    choose(openMenu(*tab, 0), QStringLiteral("Re-insert"));
    harness.settle();
    // Nothing is pasted while the focus is still on its way back.
    EXPECT_EQ(focus.returns, 1);
    EXPECT_EQ(focus.lastLimit, HistoryTab::focusReturnLimit);
    EXPECT_EQ(focus.returned, 0);
    EXPECT_EQ(harness.pasteKeys.chords, 0);
    EXPECT_TRUE(harness.clipboard.operations.isEmpty());

    harness.advance(std::chrono::milliseconds(40));
    EXPECT_EQ(focus.returned, 1);
    EXPECT_EQ(pasted, QStringList{QStringLiteral("So, hello.")});
    harness.advance(std::chrono::milliseconds(500));
    EXPECT_EQ(harness.pasteKeys.chords, 1);
    EXPECT_EQ(focus.returns, 1);
}

TEST_F(HistoryTabTest, ReInsertPastesWhereTheFocusIsWhenItCannotBeGivenBack) {
    setEntries({entry("older raw only")});
    FakeFocusReturn focus(harness.clock);
    focus.succeeds = false;
    auto tab = showTab(std::make_unique<HistoryTab>(harness.controller(), dialogs, focus));
    recordPastes();
    LogCapture log;

    choose(openMenu(*tab, 0), QStringLiteral("Re-insert"));
    harness.settle();
    EXPECT_EQ(focus.returns, 1);
    EXPECT_EQ(pasted, QStringList{QStringLiteral("older raw only")});
    EXPECT_EQ(log.messages(QtWarningMsg),
              QStringList{QStringLiteral("Re-inserting where the focus is: it could not be given back")});
    harness.advance(std::chrono::milliseconds(500));
}

TEST_F(HistoryTabTest, DeleteRemovesOnlyThatEntryAndSavesTheFile) {
    setEntries({entry("keep one"), entry("drop me"), entry("keep two")});
    auto tab = makeTab();
    choose(openMenu(*tab, 1), QStringLiteral("Delete"));
    EXPECT_EQ(rowTexts(*tab), (QStringList{"keep one", "keep two"}));
    const auto onDisk = HistoryStore::decodeEntries(fileBytes());
    ASSERT_TRUE(onDisk.has_value());
    EXPECT_EQ(onDisk->size(), 2);
}

TEST_F(HistoryTabTest, TheKeyboardCopiesAndDeletesTheSelectedEntry) {
    setEntries({entry("first"), entry("second")});
    auto tab = makeTab();
    auto* list = child<QListWidget>(*tab, "entries");
    list->setFocus();
    list->setCurrentRow(1);
    QTest::keySequence(list, QKeySequence::Copy);
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("second"));
    QTest::keyClick(list, Qt::Key_Delete);
    EXPECT_EQ(rowTexts(*tab), QStringList{"first"});
}

TEST_F(HistoryTabTest, AKeyboardMenuRequestOpensTheMenuOfTheSelectedEntry) {
    setEntries({entry("first"), entry("heard words", QStringLiteral("Final words."))});
    auto tab = makeTab();
    auto* list = child<QListWidget>(*tab, "entries");
    list->setFocus();
    QTest::keyClick(list, Qt::Key_Down);
    QTest::keyClick(list, Qt::Key_Down);
    ASSERT_EQ(list->currentRow(), 1);
    // The request the menu key makes: at the current item, with the keyboard as its reason.
    const QPoint point = list->visualItemRect(list->currentItem()).center();
    QContextMenuEvent request(QContextMenuEvent::Keyboard, point, list->viewport()->mapToGlobal(point));
    QApplication::sendEvent(list->viewport(), &request);
    auto* menu = tab->findChild<QMenu*>(QStringLiteral("entryMenu"));
    ASSERT_NE(menu, nullptr);
    EXPECT_EQ(actionTexts(menu), (QStringList{"Copy", "Copy Raw", "Re-insert", "---", "Delete"}));
    choose(menu, QStringLiteral("Copy Raw"));
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("heard words"));
}

TEST_F(HistoryTabTest, ClearAllDeletesEverythingWithoutAsking) {
    setEntries({entry("a"), entry("b")});
    auto tab = makeTab();
    auto* clearAll = child<QPushButton>(*tab, "clearAll");

    clearAll->setFocus();
    QTest::keyClick(clearAll, Qt::Key_Space);
    EXPECT_TRUE(otherWindows(*tab).isEmpty());
    EXPECT_TRUE(store().entries().isEmpty());
    EXPECT_EQ(fileBytes(), QByteArray("[]"));
    EXPECT_EQ(child<QLabel>(*tab, "emptyHistory")->text(), QStringLiteral("No dictations recorded yet."));
    EXPECT_FALSE(clearAll->isEnabled());
}

TEST_F(HistoryTabTest, TheHeaderShowsDateProviderAndApplication) {
    const QDateTime local(QDate(2026, 11, 15), QTime(15, 4));
    HistoryEntry e = entry("x", std::nullopt, QStringLiteral("Claude (Anthropic)"));
    e.timestamp = double(local.toSecsSinceEpoch()) - ReferenceDate::unixOffsetSeconds;
    const QString line = HistoryTab::headerLine(e);
    // Abbreviated month and day, then the locale's short time: hour with AM/PM, and minute.
    EXPECT_EQ(line, QStringLiteral("Nov 15, ") + QLocale().toString(QTime(15, 4), QLocale::ShortFormat) +
                        QStringLiteral(" \u00B7 Claude (Anthropic)"));
    EXPECT_TRUE(line.contains(QStringLiteral("3:04"))) << line.toStdString();
    EXPECT_TRUE(line.contains(QStringLiteral("PM"))) << line.toStdString();
}

TEST_F(HistoryTabTest, AnEntryWithProviderDashShowsNoProviderPart) {
    HistoryEntry e = entry("x", std::nullopt, noProvider);
    e.timestamp = double(QDateTime(QDate(2026, 11, 15), QTime(15, 4)).toSecsSinceEpoch()) -
                  ReferenceDate::unixOffsetSeconds;
    setEntries({e});
    auto tab = makeTab();
    QString line = header(*tab, 0);
    EXPECT_FALSE(line.contains(noProvider));
    EXPECT_FALSE(line.contains(QStringLiteral("\u00B7")));
    // Newer locale data puts a narrow no-break space before the day period.
    line.replace(QChar(0x202F), QLatin1Char(' '));
    EXPECT_EQ(line, QStringLiteral("Nov 15, 3:04 PM"));
}

TEST_F(HistoryTabTest, AnEntryWhoseApplicationIsNoLongerInstalledShowsItsIdentifier) {
    setEntries({entry("x", std::nullopt, noProvider, QStringLiteral("org.example.RemovedEditor"))});
    auto tab = makeTab();
    EXPECT_TRUE(header(*tab, 0).endsWith(QStringLiteral(" \u00B7 org.example.RemovedEditor")));
}

TEST_F(HistoryTabTest, AnInstalledApplicationShowsItsName) {
    const QString folder = home.dataHome() + QStringLiteral("/applications");
    ASSERT_TRUE(QDir().mkpath(folder + QStringLiteral("/vendor")));
    QFile file(folder + QStringLiteral("/org.example.Notes.desktop"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("[Desktop Entry]\nType=Application\nName=Example Notes\nName[de]=Notizen\nExec=notes\n"
               "[Desktop Action new]\nName=New Note\n");
    file.close();
    QFile nested(folder + QStringLiteral("/vendor/editor.desktop"));
    ASSERT_TRUE(nested.open(QIODevice::WriteOnly));
    nested.write("[Desktop Entry]\nType=Application\nName=Vendor Editor\n");
    nested.close();

    setEntries(
        {entry("x", std::nullopt, QStringLiteral("OpenAI-compatible"), QStringLiteral("org.example.Notes")),
         entry("y", std::nullopt, noProvider, QStringLiteral("vendor-editor"))});
    auto tab = makeTab();
    EXPECT_TRUE(header(*tab, 0).endsWith(QStringLiteral(" \u00B7 OpenAI-compatible \u00B7 Example Notes")))
        << header(*tab, 0).toStdString();
    EXPECT_TRUE(header(*tab, 1).endsWith(QStringLiteral(" \u00B7 Vendor Editor")))
        << header(*tab, 1).toStdString();
}

TEST_F(HistoryTabTest, LongTextsAreCutToThreeLines) {
    const QString longText = QStringLiteral("word ").repeated(400).trimmed();
    const QFont font = QApplication::font();
    const QStringList lines = HistoryEntryDelegate::textLines(longText, font, 300);
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines.last().endsWith(QChar(0x2026)));
    EXPECT_EQ(HistoryEntryDelegate::textLines(QStringLiteral("short"), font, 300), QStringList{"short"});
    EXPECT_EQ(HistoryEntryDelegate::textLines(QStringLiteral("one\ntwo"), font, 300),
              (QStringList{"one", "two"}));
}

TEST_F(HistoryTabTest, Screenshots) {
    using murmurly::testing::areaIn;
    using murmurly::testing::picturesSomethingIn;
    store().setEnabled(true);
    HistoryTab empty(harness.controller(), dialogs);
    const QString emptyPath =
        murmurly::testing::saveTabScreenshot(empty, QStringLiteral("history-tab-empty"));
    ASSERT_FALSE(emptyPath.isEmpty());
    EXPECT_EQ(QImage(emptyPath).size(), murmurly::testing::tabAreaSize);
    auto* emptyText = child<QLabel>(empty, "emptyHistory");
    ASSERT_TRUE(shown(empty, emptyText));
    EXPECT_EQ(emptyText->text(), QStringLiteral("No dictations recorded yet."));
    EXPECT_TRUE(picturesSomethingIn(emptyPath, areaIn(empty, *emptyText)));
    auto* keepLast = child<QSpinBox>(empty, "keepLast");
    EXPECT_TRUE(shown(empty, keepLast));
    EXPECT_EQ(stepperText(empty, "keepLast"), QStringLiteral("Keep last 100 entries"));
    EXPECT_TRUE(picturesSomethingIn(emptyPath, areaIn(empty, *keepLast)));
    EXPECT_TRUE(QRect(QPoint(0, 0), murmurly::testing::tabAreaSize).contains(areaIn(empty, *keepLast)));

    setEntries(
        {entry("um so the deploy is uh blocked on the review",
               QStringLiteral("The deploy is blocked on the review."), QStringLiteral("Claude (Anthropic)"),
               QStringLiteral("org.gnome.TextEditor"), 2),
         entry("remind me to buy milk and eggs", std::nullopt, noProvider, QStringLiteral("firefox-esr"), 40),
         entry(QStringLiteral("this one is long ").repeated(20).trimmed(),
               QStringLiteral("This one is long, ").repeated(20).trimmed() + QStringLiteral("."),
               QStringLiteral("On-Device (local)"), std::nullopt, 180),
         entry("ship it", std::nullopt, QStringLiteral("OpenAI-compatible"),
               QStringLiteral("org.kde.konsole"), 600)});
    HistoryTab withEntries(harness.controller(), dialogs);
    const QString path =
        murmurly::testing::saveTabScreenshot(withEntries, QStringLiteral("history-tab-entries"));
    ASSERT_FALSE(path.isEmpty());
    EXPECT_EQ(QImage(path).size(), murmurly::testing::tabAreaSize);
    EXPECT_EQ(rowTexts(withEntries).first(), QStringLiteral("The deploy is blocked on the review."));
    auto* list = child<QListWidget>(withEntries, "entries");
    ASSERT_TRUE(shown(withEntries, list));
    const QRect firstRow =
        list->visualItemRect(list->item(0)).translated(list->viewport()->mapTo(&withEntries, QPoint(0, 0)));
    EXPECT_GT(firstRow.height(), 0);
    EXPECT_TRUE(picturesSomethingIn(path, firstRow));

    store().setEnabled(false);
    HistoryTab off(harness.controller(), dialogs);
    const QString offPath = murmurly::testing::saveTabScreenshot(off, QStringLiteral("history-tab-off"));
    ASSERT_FALSE(offPath.isEmpty());
    EXPECT_FALSE(shown(off, child<QGroupBox>(off, "retention")));
    auto* toggle = child<QCheckBox>(off, "historyEnabled");
    EXPECT_FALSE(toggle->isChecked());
    EXPECT_TRUE(picturesSomethingIn(offPath, areaIn(off, *toggle)));
}

TEST_F(HistoryTabTest, SteppersTakeNoWheelTurnUntilFocusedAndThenDo) {
    store().setEnabled(true);
    setEntries({entry("one"), entry("two")});
    auto tab = makeTab();
    auto* keepLast = child<QSpinBox>(*tab, "keepLast");
    auto* maxAge = child<QSpinBox>(*tab, "maxAgeDays");
    auto* search = child<QLineEdit>(*tab, "search");
    search->setFocus();
    ASSERT_TRUE(QTest::qWaitFor([&] { return search->hasFocus(); }));

    // Counts the wheel events that reach each stepper, to know the turns did arrive.
    struct WheelCounter : QObject {
        int count = 0;
        bool eventFilter(QObject*, QEvent* event) override {
            if (event->type() == QEvent::Wheel) ++count;
            return false;
        }
    };
    WheelCounter keepLastWheels, maxAgeWheels;
    keepLast->installEventFilter(&keepLastWheels);
    maxAge->installEventFilter(&maxAgeWheels);

    XTestPointer mouse;
    ASSERT_TRUE(mouse.isOpen());
    for (auto [stepper, wheels] : {std::pair{keepLast, &keepLastWheels}, std::pair{maxAge, &maxAgeWheels}}) {
        const QPoint middle = stepper->mapToGlobal(stepper->rect().center());
        mouse.moveTo(middle.x(), middle.y());
        mouse.turnWheel(2);
        mouse.turnWheel(-3);
        ASSERT_TRUE(QTest::qWaitFor([&] { return wheels->count >= 5; }, 5000)) << wheels->count;
        EXPECT_FALSE(stepper->hasFocus());
    }
    QCoreApplication::processEvents();
    EXPECT_EQ(store().keepLast(), 100);
    EXPECT_EQ(store().maxAgeDays(), 0);
    EXPECT_EQ(store().entries().size(), 2);
    EXPECT_EQ(harness.defaults.intValue(HistoryStore::keepLastKey), std::nullopt);

    // A click gives the stepper the focus; from then on the wheel steps it.
    const QPoint middle = keepLast->mapToGlobal(QPoint(keepLast->width() / 3, keepLast->height() / 2));
    mouse.moveTo(middle.x(), middle.y());
    mouse.click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return keepLast->hasFocus(); }, 5000));
    EXPECT_EQ(store().keepLast(), 100); // the click itself stepped nothing
    mouse.turnWheel(1);
    EXPECT_TRUE(QTest::qWaitFor([&] { return store().keepLast() == 125; }, 5000)) << store().keepLast();
}

TEST_F(HistoryTabTest, EveryControlHasAnAccessibleNameAndTabReachesIt) {
    store().setEnabled(true);
    setEntries({entry("a"), entry("b")});
    auto tab = makeTab();
    murmurly::testing::expectKeyboardAndNames(*tab);
}

} // namespace
