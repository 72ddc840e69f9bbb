#pragma once

#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QList>
#include <QTest>
#include <QWidget>

#include <gtest/gtest.h>

namespace murmurly::testing {

// The controls of `tab` a keyboard user can act on: visible, enabled and taking the focus by Tab.
// The text field inside a stepper or an editable picker is part of that control.
inline QList<QWidget*> keyboardControls(QWidget& tab) {
    QList<QWidget*> controls;
    for (QWidget* widget : tab.findChildren<QWidget*>()) {
        if (!widget->isVisibleTo(&tab) || !widget->isEnabled()) continue;
        if (!(widget->focusPolicy() & Qt::TabFocus)) continue;
        if (qobject_cast<QAbstractSpinBox*>(widget->parentWidget()) ||
            qobject_cast<QComboBox*>(widget->parentWidget()))
            continue;
        controls << widget;
    }
    return controls;
}

// The control that has the focus, taking a stepper's or picker's inner text field as the control.
inline QWidget* focusedControl() {
    QWidget* focused = QApplication::focusWidget();
    if (focused && (qobject_cast<QAbstractSpinBox*>(focused->parentWidget()) ||
                    qobject_cast<QComboBox*>(focused->parentWidget())))
        return focused->parentWidget();
    return focused;
}

// Every control Tab reaches, starting at the tab's first and going round once.
inline QList<QWidget*> reachedByTab(QWidget& tab) {
    tab.activateWindow();
    if (!QTest::qWaitForWindowActive(&tab)) return {};
    QTest::keyClick(&tab, Qt::Key_Tab);
    QList<QWidget*> reached;
    for (int i = 0; i < 200; ++i) {
        QWidget* control = focusedControl();
        if (!control || reached.contains(control)) break;
        reached << control;
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
    return reached;
}

// Every control has a name for assistive technology, and Tab reaches each of them. The controls
// are counted after the walk, since moving the focus may change what is enabled (focusing a row's
// field selects that row).
// `checkedElsewhere` lists controls whose reach the caller checks itself.
inline void expectKeyboardAndNames(QWidget& tab, const QList<QWidget*>& checkedElsewhere = {}) {
    const QList<QWidget*> reached = reachedByTab(tab);
    const QList<QWidget*> controls = keyboardControls(tab);
    EXPECT_FALSE(controls.isEmpty());
    std::string order;
    for (QWidget* control : reached)
        order += control->accessibleName().toStdString() + " | ";
    SCOPED_TRACE("Tab order: " + order);
    for (QWidget* control : controls) {
        EXPECT_FALSE(control->accessibleName().isEmpty())
            << control->metaObject()->className() << " " << control->objectName().toStdString();
        EXPECT_TRUE(reached.contains(control) || checkedElsewhere.contains(control))
            << "Tab does not reach " << control->metaObject()->className() << " "
            << control->objectName().toStdString() << " " << control->accessibleName().toStdString();
    }
}

} // namespace murmurly::testing
