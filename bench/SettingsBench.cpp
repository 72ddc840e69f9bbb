// Opening the settings window from the tray menu: the menu's action, the window with its pages
// built and shown, until the X server has it on screen.
#include "ControllerHarness.h"
#include "Figures.h"

#include "app/MenuContent.h"
#include "platform/linux/X11KeyEventTranslator.h"
#include "settings/GeneralTab.h"
#include "settings/InputDeviceName.h"
#include "settings/PermissionsTab.h"
#include "settings/SettingsTab.h"
#include "settings/SettingsWindow.h"
#include "settings/UsageTab.h"

#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QTest>

#include <benchmark/benchmark.h>

#include <memory>

using namespace murmurly;

namespace {

class FixedInputName final : public InputDeviceName {
public:
    std::optional<QString> currentInputName() override { return QStringLiteral("Built-in Microphone"); }
};

// What the program does on "Settings…" when the window does not exist yet: build every page and
// the window, then bring it to the front.
std::unique_ptr<SettingsWindow> buildWindow(AppController& controller, const KeyEventTranslator& translator,
                                            InputDeviceName& inputName) {
    QList<SettingsPage> pages;
    for (const SettingsTab tab : SettingsTabs::allCases) {
        QWidget* page = nullptr;
        switch (tab) {
        case SettingsTab::general:
            page = new GeneralTab(controller, translator, inputName);
            break;
        case SettingsTab::usage:
            page = new UsageTab(controller.usage());
            break;
        case SettingsTab::permissions:
            page = new PermissionsTab(controller);
            break;
        default:
            // The other tabs are built elsewhere; a label stands in for each.
            page = new QLabel(SettingsTabs::title(tab));
            break;
        }
        pages.append({SettingsTabs::title(tab), SettingsTabs::icon(tab), page});
    }
    return std::make_unique<SettingsWindow>(pages);
}

// Opens the window from the menu once per iteration and closes it in between. Without
// `keepWindow` it is destroyed on closing, so each opening builds it; with it, the window is built
// once beforehand and each opening only shows and raises it.
void openFromMenu(benchmark::State& state, bool keepWindow) {
    if (!qobject_cast<QApplication*>(QCoreApplication::instance())) {
        state.SkipWithError("needs the private X server");
        return;
    }
    testing::ControllerHarness harness;
    AppController& controller = harness.controller();
    MenuContent menu(controller, controller.usage(), controller.cleanupSettings());
    X11KeyEventTranslator translator;
    FixedInputName inputName;
    std::unique_ptr<SettingsWindow> window;
    if (keepWindow) window = buildWindow(controller, translator, inputName);
    QObject::connect(&menu, &MenuContent::settingsRequested, [&] {
        if (!window) window = buildWindow(controller, translator, inputName);
        window->showAndRaise();
    });
    for (auto _ : state) {
        menu.settingsAction()->trigger();
        if (!QTest::qWaitForWindowExposed(window.get(), 5000)) {
            state.SkipWithError("the window never appeared");
            break;
        }
        state.PauseTiming();
        if (keepWindow)
            window->close();
        else
            window.reset();
        QCoreApplication::processEvents();
        state.ResumeTiming();
    }
}

void BM_OpenSettingsWindow(benchmark::State& state) {
    openFromMenu(state, false);
}

// The same window opened again after it was closed: only showing and raising.
void BM_ReopenSettingsWindow(benchmark::State& state) {
    openFromMenu(state, true);
}

const bool figures = [] {
    bench::addFigure("BM_OpenSettingsWindow", {"<= 300 ms", 0.300, std::nullopt});
    bench::addFigure("BM_ReopenSettingsWindow", {"<= 300 ms", 0.300, std::nullopt});
    return true;
}();

} // namespace

BENCHMARK(BM_OpenSettingsWindow)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(10);
BENCHMARK(BM_ReopenSettingsWindow)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(10);
