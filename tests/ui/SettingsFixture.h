#pragma once

#include "UiTestSupport.h"

#include "core/AppController.h"
#include "platform/linux/X11KeyEventTranslator.h"
#include "settings/GeneralTab.h"
#include "settings/PermissionsTab.h"
#include "settings/SettingsTab.h"
#include "settings/SettingsWindow.h"
#include "settings/UsageTab.h"

#include <QCoreApplication>
#include <QEvent>
#include <QLabel>
#include <QTest>

#include <memory>

namespace murmurly::uitest {

// A page that stands for a tab built elsewhere.
inline QWidget* placeholderPage(const QString& title) {
    auto* page = new QLabel(title + QStringLiteral(" settings"));
    page->setAlignment(Qt::AlignCenter);
    return page;
}

// The settings window as the program builds it: the three tabs made here, and labelled stand-ins
// for the other three, in sidebar order.
struct SettingsFixture {
    explicit SettingsFixture(murmurly::testing::ControllerHarness& harness)
        : controller(harness.controller()) {
        general = new GeneralTab(controller, translator, inputName);
        usage = new UsageTab(controller.usage());
        permissions = new PermissionsTab(controller);
        QList<SettingsPage> pages;
        for (const SettingsTab tab : SettingsTabs::allCases) {
            QWidget* page = nullptr;
            switch (tab) {
            case SettingsTab::general:
                page = general;
                break;
            case SettingsTab::usage:
                page = usage;
                break;
            case SettingsTab::permissions:
                page = permissions;
                break;
            default:
                page = placeholderPage(SettingsTabs::title(tab));
                break;
            }
            pages.append({SettingsTabs::title(tab), SettingsTabs::icon(tab), page});
        }
        window = std::make_unique<SettingsWindow>(pages);
    }

    // Opens the window on `tab` at the size it opens at, where every control is in view.
    void show(SettingsTab tab) {
        window->showAndRaise();
        window->selectPage(SettingsTabs::title(tab));
        EXPECT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        settleLayout();
    }

    // Opens the window on `tab` at its minimum size, for pictures of the narrowest layout.
    void showAtMinimumSize(SettingsTab tab) {
        window->showAndRaise();
        window->resize(window->minimumSize());
        window->selectPage(SettingsTabs::title(tab));
        EXPECT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        EXPECT_TRUE(QTest::qWaitFor([&] { return window->size() == window->minimumSize(); }, 5000));
        settleLayout();
    }

    // A label that wraps gets its height only in the layout pass after the one that gave it its
    // width: lets those passes run before anything is measured.
    static void settleLayout() {
        for (int pass = 0; pass < 4; ++pass) {
            QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
            QCoreApplication::processEvents();
        }
    }

    AppController& controller;
    X11KeyEventTranslator translator;
    FakeInputDeviceName inputName;
    GeneralTab* general = nullptr;
    UsageTab* usage = nullptr;
    PermissionsTab* permissions = nullptr;
    std::unique_ptr<SettingsWindow> window;
};

} // namespace murmurly::uitest
