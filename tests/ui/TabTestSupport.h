#pragma once

#include "TabScreenshot.h"

#include <QApplication>
#include <QTest>
#include <QWidget>

#include <gtest/gtest.h>

#include <memory>

namespace murmurly::testing {

// Shows `tab` on its own at the size the settings window gives it, and makes it the active window,
// so that keys go where a person's would: to its focused control.
template <typename Tab> std::unique_ptr<Tab> showTab(std::unique_ptr<Tab> tab) {
    tab->resize(tabAreaSize);
    tab->show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(tab.get()));
    tab->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowActive(tab.get()));
    return tab;
}

// The control of `tab` with the object name `name`; a failure of the test when there is none.
template <typename T> T* child(QWidget& tab, const char* name) {
    T* found = tab.findChild<T*>(QString::fromLatin1(name));
    EXPECT_NE(found, nullptr) << name;
    return found;
}

// Whether `widget` exists and would be seen when `tab` is.
inline bool shown(QWidget& tab, QWidget* widget) {
    return widget && widget->isVisibleTo(&tab);
}

// The windows on screen besides `tab`: a message or a question the tab put up.
inline QWidgetList otherWindows(const QWidget& tab) {
    QWidgetList others;
    for (QWidget* window : QApplication::topLevelWidgets())
        if (window != &tab && window->isVisible()) others << window;
    return others;
}

} // namespace murmurly::testing
