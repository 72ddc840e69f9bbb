// The settings window frame: its tabs in order, its measures, keyboard use, and coming to the front.
#include "SettingsFixture.h"

#include "settings/HotkeyRecorderRow.h"
#include "settings/SpeechEngineSection.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QComboBox>
#include <QListWidget>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QTest>

using namespace murmurly;
using namespace murmurly::uitest;
using murmurly::testing::ControllerHarness;

TEST(SettingsWindow, ListsTheSixTabsInOrderWithIcons) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    SettingsWindow& window = *f.window;
    EXPECT_EQ(window.windowTitle(), QStringLiteral("Murmurly Settings"));
    QStringList titles;
    for (int i = 0; i < window.sidebar()->count(); ++i) {
        titles.append(window.sidebar()->item(i)->text());
        EXPECT_FALSE(window.sidebar()->item(i)->icon().isNull()) << i;
    }
    EXPECT_EQ(titles, (QStringList{QStringLiteral("General"), QStringLiteral("Cleanup"),
                                   QStringLiteral("Vocabulary"), QStringLiteral("History"),
                                   QStringLiteral("Usage"), QStringLiteral("Permissions")}));
    EXPECT_EQ(window.page(QStringLiteral("General")), f.general);
    EXPECT_EQ(window.page(QStringLiteral("Usage")), f.usage);
    EXPECT_EQ(window.page(QStringLiteral("Permissions")), f.permissions);
    EXPECT_EQ(window.currentIndex(), 0);
}

TEST(SettingsWindow, HasItsMinimumSizeAndSidebarWidthAndOpensAtItsContentSize) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    SettingsWindow& window = *f.window;
    window.showAndRaise();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    EXPECT_EQ(window.minimumSize(), QSize(620, 420));
    EXPECT_EQ(window.sidebar()->width(), 180);
    // Opened at the size its pages ask for, so the General tab needs no scrolling, unless the
    // screen has no room for that: then at nine tenths of the screen's height, and it scrolls.
    EXPECT_GE(window.width(), 620);
    EXPECT_GE(window.height(), 420);
    const auto* scroller = qobject_cast<QScrollArea*>(f.general->parentWidget()->parentWidget());
    ASSERT_NE(scroller, nullptr);
    const int room = window.screen()->availableSize().height() * 9 / 10;
    if (window.sizeHint().height() < room) {
        EXPECT_GE(scroller->viewport()->height(), f.general->sizeHint().height());
        EXPECT_FALSE(scroller->verticalScrollBar()->isVisible());
    } else {
        EXPECT_EQ(window.height(), room);
        EXPECT_EQ(scroller->verticalScrollBar()->isVisible(),
                  scroller->viewport()->height() < f.general->sizeHint().height());
    }
    saveScreenshot(&window, QStringLiteral("settings-general-opened"));

    // Larger than its content, as the user drags it, to see more rows of a list.
    const QSize opened = window.size();
    const QSize larger = (opened + QSize(160, 120)).boundedTo(QSize(1280, 800));
    ASSERT_NE(larger, opened);
    window.resize(larger);
    EXPECT_TRUE(QTest::qWaitFor([&] { return window.size() == larger; }, 5000))
        << window.width() << "x" << window.height();
    // Shown again, it still sets no maximum.
    window.hide();
    window.showAndRaise();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    EXPECT_EQ(window.maximumSize(), QSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX));

    // Never smaller than the minimum; the page scrolls instead.
    window.resize(300, 200);
    QCoreApplication::processEvents();
    EXPECT_GE(window.width(), 620);
    EXPECT_GE(window.height(), 420);
}

TEST(SettingsWindow, AtTheMinimumSizeEveryPageFitsItsWidth) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    for (const SettingsTab tab : {SettingsTab::general, SettingsTab::usage, SettingsTab::permissions}) {
        f.showAtMinimumSize(tab);
        QWidget* page = f.window->page(SettingsTabs::title(tab));
        const auto* scroller = qobject_cast<QScrollArea*>(page->parentWidget()->parentWidget());
        ASSERT_NE(scroller, nullptr);
        // Nothing cut off at the right: the page is no wider than the space beside the sidebar.
        EXPECT_LE(page->minimumSizeHint().width(), scroller->viewport()->width())
            << qPrintable(SettingsTabs::title(tab));
        EXPECT_LE(page->width(), scroller->viewport()->width()) << qPrintable(SettingsTabs::title(tab));
    }
}

TEST(SettingsWindow, ShowAndRaiseShowsActivatesAndRestoresAMinimisedWindow) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    SettingsWindow& window = *f.window;
    EXPECT_FALSE(window.isVisible());
    window.showAndRaise();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    EXPECT_EQ(QApplication::activeWindow(), &window);

    window.showMinimized();
    QCoreApplication::processEvents();
    window.showAndRaise();
    EXPECT_FALSE(window.isMinimized());
    EXPECT_TRUE(window.isVisible());
    EXPECT_TRUE(QTest::qWaitForWindowActive(&window));

    // A second request while it is open leaves one window, still in front.
    window.showAndRaise();
    EXPECT_TRUE(window.isVisible());
    EXPECT_EQ(QApplication::activeWindow(), &window);
}

TEST(SettingsWindow, ArrowKeysInTheSidebarSwitchTabs) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    SettingsWindow& window = *f.window;
    window.showAndRaise();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    EXPECT_EQ(QApplication::focusWidget(), window.sidebar());
    for (int i = 1; i < 6; ++i) {
        QTest::keyClick(window.sidebar(), Qt::Key_Down);
        EXPECT_EQ(window.currentIndex(), i);
    }
    EXPECT_TRUE(f.permissions->isVisible());
    EXPECT_FALSE(f.general->isVisible());
    QTest::keyClick(window.sidebar(), Qt::Key_Home);
    EXPECT_TRUE(f.general->isVisible());
}

TEST(SettingsWindow, TabReachesEveryControlOfThePageAndBack) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    SettingsWindow& window = *f.window;
    window.showAndRaise();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    QList<QWidget*> visited;
    for (int i = 0; i < 12; ++i) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QWidget* focus = QApplication::focusWidget();
        if (focus == window.sidebar()) break;
        visited.append(focus);
    }
    // The General tab's controls, top to bottom, then back to the sidebar.
    const QList<QWidget*> expected{f.general->recorderRow()->button(),
                                   f.general->captureModeBox(),
                                   f.general->trailingSpaceBox(),
                                   f.general->languageBox(),
                                   f.general->speechEngineSection()->engineBox(),
                                   f.general->cleanupBox(),
                                   f.general->launchAtLoginBox()};
    EXPECT_EQ(visited, expected);
    EXPECT_EQ(QApplication::focusWidget(), window.sidebar());
}

TEST(SettingsWindow, EveryControlHasAnAccessibleName) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    SettingsWindow& window = *f.window;
    window.showAndRaise();
    for (int tab = 0; tab < window.pageCount(); ++tab) {
        window.setCurrentIndex(tab);
        for (QWidget* widget : window.findChildren<QWidget*>()) {
            if (!widget->isVisible() || widget->focusPolicy() == Qt::NoFocus) continue;
            QString name = widget->accessibleName();
            if (name.isEmpty())
                if (auto* button = qobject_cast<QAbstractButton*>(widget)) name = button->text();
            EXPECT_FALSE(name.isEmpty()) << "tab " << tab << ": " << widget->metaObject()->className();
        }
    }
}
