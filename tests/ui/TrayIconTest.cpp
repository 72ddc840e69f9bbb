// The tray icon: one drawing per state, a pulse only while recording, and the decision to open the
// settings window when the desktop has no tray.
#include "UiTestSupport.h"

#include "WaitUntil.h"
#include "app/MenuContent.h"
#include "app/TrayIcon.h"

#include <QMenu>
#include <QPainter>
#include <QSystemTrayIcon>
#include <QTest>

#include <X11/Xatom.h>
#include <X11/Xlib.h>

using namespace murmurly;
using namespace murmurly::uitest;
using murmurly::testing::ControllerHarness;

namespace {

QImage imageOf(const QIcon& icon, int pixels = 22) {
    return icon.pixmap(QSize(pixels, pixels)).toImage().convertToFormat(QImage::Format_ARGB32);
}

constexpr std::array<DictationState, 5> allStates{DictationState::idle, DictationState::recording,
                                                  DictationState::transcribing, DictationState::cleaning,
                                                  DictationState::inserting};

} // namespace

TEST(TrayIcon, EachStateHasItsOwnDrawing) {
    for (std::size_t i = 0; i < allStates.size(); ++i) {
        const QImage image = imageOf(TrayIcon::stateIcon(allStates[i]));
        ASSERT_FALSE(image.isNull());
        for (std::size_t j = 0; j < i; ++j)
            EXPECT_NE(image, imageOf(TrayIcon::stateIcon(allStates[j]))) << i << " vs " << j;
    }
}

TEST(TrayIcon, DrawingsAtPanelSizesOnLightAndDarkPanels) {
    // A sheet of every state at 16, 22 and 24 pixels on a light and a dark panel, to look at.
    const int sizes[] = {16, 22, 24};
    const QColor panels[] = {QColor(0xf2, 0xf2, 0xf2), QColor(0x2b, 0x2b, 0x2b)};
    QImage sheet(8 + 5 * 34, 8 + 6 * 32, QImage::Format_ARGB32);
    sheet.fill(Qt::white);
    QPainter painter(&sheet);
    int y = 4;
    for (const QColor& panel : panels) {
        for (const int size : sizes) {
            painter.fillRect(QRect(0, y - 4, sheet.width(), 32), panel);
            for (std::size_t i = 0; i < allStates.size(); ++i)
                painter.drawImage(QPoint(8 + static_cast<int>(i) * 34, y + (24 - size) / 2),
                                  imageOf(TrayIcon::stateIcon(allStates[i]), size));
            y += 32;
        }
    }
    painter.end();
    saveScreenshot(sheet, QStringLiteral("tray-icons"));
    // Each drawing shows both a light and a dark part, so it stands out on either panel.
    for (const DictationState state : allStates) {
        const QImage image = imageOf(TrayIcon::stateIcon(state), 24);
        int light = 0;
        int dark = 0;
        for (int py = 0; py < image.height(); ++py)
            for (int px = 0; px < image.width(); ++px) {
                const QColor c = image.pixelColor(px, py);
                if (c.alpha() < 200) continue;
                if (c.lightness() > 200) ++light;
                if (c.lightness() < 80) ++dark;
            }
        EXPECT_GT(light, 10) << static_cast<int>(state);
        EXPECT_GT(dark, 10) << static_cast<int>(state);
    }
}

TEST(TrayIcon, PulsesOnlyWhileRecording) {
    ControllerHarness harness;
    AppController& controller = harness.controller();
    QMenu menu;
    TrayIcon tray(controller, &menu);
    EXPECT_FALSE(tray.isPulsing());
    EXPECT_EQ(imageOf(tray.systemTrayIcon().icon()), imageOf(TrayIcon::stateIcon(DictationState::idle)));

    harness.speech.script.finalResults = {TranscriptionResult{QStringLiteral("hi"), true}};
    controller.pttPressed();
    harness.settle();
    ASSERT_EQ(controller.state(), DictationState::recording);
    EXPECT_TRUE(tray.isPulsing());
    EXPECT_EQ(imageOf(tray.systemTrayIcon().icon()), imageOf(TrayIcon::stateIcon(DictationState::recording)));
    // The pulse runs on real time: within a few frames the icon has faded.
    ASSERT_TRUE(murmurly::testing::waitUntil([&] { return tray.currentPulseFrame() >= 2; }, 20s));
    EXPECT_EQ(imageOf(tray.systemTrayIcon().icon()), imageOf(TrayIcon::pulseFrame(tray.currentPulseFrame())));
    EXPECT_NE(imageOf(tray.systemTrayIcon().icon()), imageOf(TrayIcon::stateIcon(DictationState::recording)));

    harness.advance(500ms);
    controller.pttReleased();
    harness.settle();
    EXPECT_NE(controller.state(), DictationState::recording);
    EXPECT_FALSE(tray.isPulsing());
    EXPECT_EQ(imageOf(tray.systemTrayIcon().icon()), imageOf(TrayIcon::stateIcon(controller.state())));
    harness.advance(1s);
    EXPECT_EQ(controller.state(), DictationState::idle);
    EXPECT_FALSE(tray.isPulsing());
    EXPECT_EQ(imageOf(tray.systemTrayIcon().icon()), imageOf(TrayIcon::stateIcon(DictationState::idle)));
}

TEST(TrayIcon, PulseFramesFadeAndComeBack) {
    EXPECT_EQ(imageOf(TrayIcon::pulseFrame(0)), imageOf(TrayIcon::stateIcon(DictationState::recording)));
    EXPECT_EQ(imageOf(TrayIcon::pulseFrame(TrayIcon::pulseFrameCount)), imageOf(TrayIcon::pulseFrame(0)));
    const auto alphaSum = [](const QImage& image) {
        qint64 sum = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                sum += image.pixelColor(x, y).alpha();
        return sum;
    };
    const int half = TrayIcon::pulseFrameCount / 2;
    EXPECT_LT(alphaSum(imageOf(TrayIcon::pulseFrame(half))), alphaSum(imageOf(TrayIcon::pulseFrame(1))));
    EXPECT_LT(alphaSum(imageOf(TrayIcon::pulseFrame(1))), alphaSum(imageOf(TrayIcon::pulseFrame(0))));
}

TEST(TrayIcon, TooltipNamesTheState) {
    ControllerHarness harness;
    QMenu menu;
    TrayIcon tray(harness.controller(), &menu);
    EXPECT_EQ(tray.systemTrayIcon().toolTip(), QStringLiteral("Murmurly \u2014 Idle"));
    EXPECT_EQ(tray.systemTrayIcon().contextMenu(), &menu);
}

TEST(TrayIcon, WithoutATrayTheSettingsWindowOpensAtStart) {
    // The test's own X server has no tray, and the test process no desktop bus with a tray host.
    qunsetenv("DBUS_SESSION_BUS_ADDRESS");
    EXPECT_TRUE(TrayIcon::shouldOpenSettingsAtStart());
}

TEST(TrayIcon, WithAnXTrayTheProgramStaysInTheTray) {
    qunsetenv("DBUS_SESSION_BUS_ADDRESS");
    // Another client takes the tray manager's selection on the test's X server and announces it,
    // as a panel with a tray does.
    Display* display = XOpenDisplay(nullptr);
    ASSERT_NE(display, nullptr);
    const Window root = DefaultRootWindow(display);
    const Window manager = XCreateSimpleWindow(display, root, 0, 0, 1, 1, 0, 0, 0);
    const Atom selection = XInternAtom(display, "_NET_SYSTEM_TRAY_S0", False);
    XSetSelectionOwner(display, selection, manager, CurrentTime);
    XEvent announce{};
    announce.xclient.type = ClientMessage;
    announce.xclient.window = root;
    announce.xclient.message_type = XInternAtom(display, "MANAGER", False);
    announce.xclient.format = 32;
    announce.xclient.data.l[0] = CurrentTime;
    announce.xclient.data.l[1] = static_cast<long>(selection);
    announce.xclient.data.l[2] = static_cast<long>(manager);
    XSendEvent(display, root, False, StructureNotifyMask, &announce);
    XSync(display, False);

    EXPECT_TRUE(murmurly::testing::waitUntil([] { return !TrayIcon::shouldOpenSettingsAtStart(); }, 20s));
    XDestroyWindow(display, manager);
    XCloseDisplay(display);
}
