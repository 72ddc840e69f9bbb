// The session's choice of desktop services and what the Permissions tab says of it: an X11
// session as before, and a Wayland session whose compositor offers neither data-control nor a
// virtual keyboard, which still starts and says what is missing.
#include "SettingsFixture.h"
#include "UiTestSupport.h"

#include "MemoryDefaults.h"
#include "PrivateDesktopPortal.h"
#include "PrivateSessionBus.h"
#include "StandInPortalRegistryProcess.h"
#include "WaitUntil.h"
#include "app/CommandLine.h"
#include "app/DesktopSession.h"
#include "app/HostPortalRegistration.h"
#include "app/PortalKeyEventSource.h"
#include "app/RemoteDesktopPasteKeys.h"
#include "app/SessionServices.h"
#include "hotkey/KeyEventSource.h"
#include "settings/PermissionsTab.h"

#include <QDBusConnectionInterface>
#include <QLabel>
#include <QProcess>

#include <gtest/gtest.h>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

class NoKeys final : public KeyEventSink {
public:
    bool keyEvent(KeyEvent::Type, std::uint16_t, std::uint64_t) override { return false; }
};

PermissionsTab::ServiceRow row(const SessionServices::Description& description) {
    return {description.title, description.detail, description.working};
}

QProcessEnvironment waylandDesktopOn(const PrivateSessionBus& bus) {
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("/nonexistent/wayland-0"));
    environment.insert(QStringLiteral("DISPLAY"), qEnvironmentVariable("DISPLAY"));
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus.address());
    return environment;
}

} // namespace

TEST(DesktopSession, WithoutAWaylandDisplayTheSessionIsX11) {
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("DISPLAY"), QStringLiteral(":5"));
    environment.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland"));
    const DesktopSession session = DesktopSession::detect(environment);
    EXPECT_EQ(session.kind, DesktopSession::Kind::x11);
    EXPECT_EQ(session.x11Display, QByteArray(":5"));
}

TEST(DesktopSession, ACompositorNestedInAnX11SessionLeavesItX11) {
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("wayland-9"));
    environment.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("x11"));
    EXPECT_EQ(DesktopSession::detect(environment).kind, DesktopSession::Kind::x11);
}

TEST(DesktopSession, ACompositorThatDoesNotAnswerStillMakesAWaylandSessionWithNothingOffered) {
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("/nonexistent/wayland-0"));
    const DesktopSession session = DesktopSession::detect(environment);
    EXPECT_EQ(session.kind, DesktopSession::Kind::wayland);
    EXPECT_FALSE(session.compositorAnswered);
    EXPECT_TRUE(session.dataControlProtocol().isEmpty());
    EXPECT_FALSE(session.offersVirtualKeyboard());
}

TEST(SessionServices, AnX11SessionKeepsTheX11ServicesAndSaysSo) {
    DesktopSession session;
    session.x11Display = qgetenv("DISPLAY");
    MemoryDefaults defaults;
    SessionServices services(session, defaults);
    EXPECT_EQ(services.keyReading(), SessionServices::KeyReading::x11);
    EXPECT_EQ(services.clipboardAccess(), SessionServices::ClipboardAccess::x11Selection);
    EXPECT_EQ(services.pasteChord(), SessionServices::PasteChord::xtest);
    EXPECT_TRUE(services.textInsertionDescription().working);
    EXPECT_TRUE(services.triggerNote().isEmpty()); // the X server's keys need no word
    EXPECT_EQ(
        services.textInsertionDescription().detail,
        QStringLiteral("Pasted with Ctrl+V through the X server; the clipboard is put back afterwards."));
}

TEST(SessionServices, AWaylandSessionWithoutDataControlOrVirtualKeyboardStartsAndSaysWhatIsMissing) {
    DesktopSession session;
    session.kind = DesktopSession::Kind::wayland;
    session.compositorAnswered = true;
    session.globals = {"wl_compositor", "wl_seat", "xdg_wm_base"};
    MemoryDefaults defaults;
    SessionServices services(session, defaults);
    EXPECT_EQ(services.keyReading(), SessionServices::KeyReading::compositorBindings);
    EXPECT_EQ(services.clipboardAccess(), SessionServices::ClipboardAccess::x11Selection);
    EXPECT_EQ(services.pasteChord(), SessionServices::PasteChord::xtest);
    EXPECT_FALSE(services.waylandKeyboardWorks());
    NoKeys sink;
    EXPECT_TRUE(services.keyEvents().start(sink)); // the compositor's bindings are the trigger
    services.keyEvents().stop();

    const SessionServices::Description insertion = services.textInsertionDescription();
    EXPECT_FALSE(insertion.working);
    EXPECT_TRUE(
        insertion.detail.contains(QStringLiteral("This desktop offers no way for other programs to paste.")))
        << insertion.detail.toStdString();
    EXPECT_TRUE(
        insertion.detail.contains(QStringLiteral("does not let other programs use the clipboard directly")))
        << insertion.detail.toStdString();

    ControllerHarness harness;
    PermissionsTab tab(harness.controller(), {row(services.keyReadingDescription()), row(insertion)});
    ASSERT_EQ(tab.serviceDetails().size(), 2);
    EXPECT_TRUE(tab.serviceDetails().at(0)->text().contains(QStringLiteral("murmurly --press")));
    EXPECT_EQ(tab.serviceDetails().at(1)->text(), insertion.detail);
    EXPECT_EQ(tab.serviceStatuses().at(1)->accessibleName(),
              QStringLiteral("Typing into other apps: not granted"));
    EXPECT_EQ(tab.serviceStatuses().at(0)->accessibleName(), QStringLiteral("Trigger key: granted"));

    // The General tab shows, under the trigger, the lines to give the compositor.
    murmurly::uitest::SettingsFixture settings(harness);
    EXPECT_TRUE(settings.general->triggerNoteLabel()->isHidden());
    settings.general->setTriggerNote(services.triggerNote());
    EXPECT_FALSE(settings.general->triggerNoteLabel()->isHidden());
    const QString note = settings.general->triggerNoteLabel()->text();
    EXPECT_TRUE(note.contains(QStringLiteral("\"murmurly --press\" on press"))) << note.toStdString();
    EXPECT_TRUE(note.contains(QStringLiteral("\"murmurly --release\" on release"))) << note.toStdString();
}

// A Wayland desktop like GNOME or KDE: no virtual keyboard, but the desktop portal has global
// shortcuts and remote desktop. Both are found on the session bus and chosen, and the rows say so.
TEST(SessionServices, AWaylandDesktopWithThePortalsTakesTheTriggerAndTheChordFromThem) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.error().toStdString();
    PrivateDesktopPortal portal(bus.address());
    ASSERT_TRUE(portal.isRunning()) << portal.error().toStdString();
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("/nonexistent/wayland-0"));
    environment.insert(QStringLiteral("DISPLAY"), qEnvironmentVariable("DISPLAY"));
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus.address());
    const DesktopSession session = DesktopSession::detect(environment);
    EXPECT_TRUE(session.offersShortcutsPortal);
    EXPECT_TRUE(session.offersRemoteDesktop);

    MemoryDefaults defaults;
    SessionServices services(session, defaults);
    EXPECT_EQ(services.keyReading(), SessionServices::KeyReading::shortcutsPortal);
    EXPECT_EQ(services.pasteChord(), SessionServices::PasteChord::remoteDesktop);
    EXPECT_TRUE(services.summary().contains(QStringLiteral("keys through the shortcuts portal")));
    EXPECT_TRUE(services.summary().contains(QStringLiteral("paste chord through the remote-desktop portal")));
    ASSERT_TRUE(services.remoteDesktop());
    ASSERT_TRUE(waitUntil(
        [&] { return services.remoteDesktop()->state() == RemoteDesktopPasteKeys::State::ready; }, 30s));
    EXPECT_EQ(portal.consentRequests(), 1u);
    EXPECT_TRUE(services.waylandKeyboardWorks());
    const SessionServices::Description insertion = services.textInsertionDescription();
    EXPECT_TRUE(insertion.working);
    EXPECT_TRUE(insertion.detail.startsWith(QStringLiteral("Pasted with Ctrl+V pressed by the desktop's "
                                                           "remote-desktop portal")))
        << insertion.detail.toStdString();
}

// Debian 12's frontend (1.16) has no application registry: the program is told so, says nothing
// alarming, and still binds its trigger and is given the keyboard.
TEST(SessionServices, APortalWithoutTheApplicationRegistryStillBindsTheTriggerAndGivesTheKeyboard) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.error().toStdString();
    PrivateDesktopPortal portal(bus.address());
    ASSERT_TRUE(portal.isRunning()) << portal.error().toStdString();
    HostPortalRegistration registration(QDBusConnection::sessionBus(), CommandLine::applicationId);
    const DesktopSession session = DesktopSession::detect(waylandDesktopOn(bus), &registration);
    EXPECT_EQ(registration.outcome(), HostPortalRegistration::Outcome::absent);
    EXPECT_TRUE(session.offersShortcutsPortal);
    EXPECT_TRUE(session.offersRemoteDesktop);

    MemoryDefaults defaults;
    SessionServices services(session, defaults, {}, &registration);
    NoKeys sink;
    ASSERT_TRUE(services.keyEvents().start(sink));
    ASSERT_TRUE(waitUntil(
        [&] { return portal.sessionsBinding(PortalKeyEventSource::dictateId).value_or(0) == 1; }, 30s))
        << portal.log().toStdString();
    ASSERT_TRUE(services.remoteDesktop());
    ASSERT_TRUE(waitUntil(
        [&] { return services.remoteDesktop()->state() == RemoteDesktopPasteKeys::State::ready; }, 30s))
        << services.remoteDesktop()->problem().toStdString();
    EXPECT_EQ(registration.outcome(), HostPortalRegistration::Outcome::absent);
    EXPECT_TRUE(services.waylandKeyboardWorks());
}

// A frontend with the registry (1.19.4 and later) takes the application id only before anything
// else is asked of it: the program registers as its desktop file is named, first and once.
TEST(SessionServices, TheProgramRegistersWithThePortalAsItsDesktopFileBeforeAnyOtherCall) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.error().toStdString();
    StandInPortalRegistryProcess portal(bus.address());
    ASSERT_TRUE(portal.isRunning());
    HostPortalRegistration registration(QDBusConnection::sessionBus(), CommandLine::applicationId);
    const DesktopSession session = DesktopSession::detect(waylandDesktopOn(bus), &registration);
    EXPECT_EQ(registration.outcome(), HostPortalRegistration::Outcome::registered);
    EXPECT_TRUE(session.offersShortcutsPortal);
    EXPECT_TRUE(session.offersRemoteDesktop);

    // The sessions are asked for too; this portal refuses them, which is not what is checked here.
    MemoryDefaults defaults;
    SessionServices services(session, defaults, {}, &registration);
    NoKeys sink;
    services.keyEvents().start(sink);
    const QString shortcutsSession = QStringLiteral("org.freedesktop.portal.GlobalShortcuts.CreateSession ");
    const QString remoteDesktopSession =
        QStringLiteral("org.freedesktop.portal.RemoteDesktop.CreateSession ");
    QStringList calls;
    ASSERT_TRUE(waitUntil(
        [&] {
            calls = portal.calls();
            return !calls.filter(shortcutsSession).isEmpty() && !calls.filter(remoteDesktopSession).isEmpty();
        },
        30s))
        << calls.join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(calls.value(0),
              QStringLiteral("org.freedesktop.host.portal.Registry.Register com.qv.Murmurly 0 options"))
        << calls.join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(calls.filter(QStringLiteral(".Register ")).size(), 1);
    EXPECT_TRUE(calls.contains(QStringLiteral(
        "org.freedesktop.DBus.Properties.Get org.freedesktop.portal.GlobalShortcuts version")));
    EXPECT_EQ(registration.outcome(), HostPortalRegistration::Outcome::registered);
}
