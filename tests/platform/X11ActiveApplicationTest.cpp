// The focused application on a real X server, named by desktop entries in private XDG folders.
#include "platform/linux/X11ActiveApplication.h"
#include "TemporaryHome.h"
#include "TextFieldWindowProcess.h"
#include "WaitUntil.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

using namespace murmurly;
using namespace murmurly::testing;

namespace {

class X11ActiveApplicationTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_savedDataDirs = qgetenv("XDG_DATA_DIRS");
        qputenv("XDG_DATA_DIRS", home.filePath(QStringLiteral("system")).toLocal8Bit());
    }
    void TearDown() override { qputenv("XDG_DATA_DIRS", m_savedDataDirs); }

    // Writes a desktop entry into the user's (or the system's) applications folder.
    void install(const QString& relativePath, const QByteArray& contents, bool system = false) {
        const QString folder = system ? home.filePath(QStringLiteral("system/applications"))
                                      : home.dataHome() + QStringLiteral("/applications");
        const QString path = folder + QLatin1Char('/') + relativePath;
        ASSERT_TRUE(QDir().mkpath(QFileInfo(path).absolutePath()));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(contents);
    }

    TemporaryHome home;
    X11ActiveApplication application;

private:
    QByteArray m_savedDataDirs;
};

// The top-level window whose WM_CLASS class is `className`, as a window manager would know it.
Window windowOfClass(Display* display, const char* className) {
    Window root = None, parent = None;
    Window* children = nullptr;
    unsigned int count = 0;
    Window found = None;
    if (XQueryTree(display, DefaultRootWindow(display), &root, &parent, &children, &count)) {
        for (unsigned int i = 0; i < count && found == None; ++i) {
            XClassHint hint{nullptr, nullptr};
            if (XGetClassHint(display, children[i], &hint)) {
                if (hint.res_class && qstrcmp(hint.res_class, className) == 0) found = children[i];
                XFree(hint.res_name);
                XFree(hint.res_class);
            }
        }
        XFree(children);
    }
    return found;
}

} // namespace

TEST_F(X11ActiveApplicationTest, NothingFocusedMeansNoApplication) {
    EXPECT_FALSE(application.focused().has_value());
}

TEST_F(X11ActiveApplicationTest, TheEntryDeclaringTheWindowClassNamesTheApplication) {
    install(QStringLiteral("org.example.Shellbox.desktop"),
            "[Desktop Entry]\nType=Application\nName=Shell Box\nStartupWMClass=Shellbox\nExec=shellbox\n"
            "[Desktop Action New]\nName=New Window\n");
    TextFieldWindowProcess window({QStringLiteral("--class"), QStringLiteral("Shellbox")});
    ASSERT_TRUE(window.isReady());
    EXPECT_EQ(application.focused(),
              (FocusedApplication{QStringLiteral("org.example.Shellbox"), QStringLiteral("Shell Box")}));
}

TEST_F(X11ActiveApplicationTest, AnEntryNamedAfterTheWindowClassNamesTheApplication) {
    install(QStringLiteral("vendor/notepadish.desktop"), "[Desktop Entry]\nName=Notepad-ish\n", true);
    install(QStringLiteral("notepadish.desktop"), "[Desktop Entry]\nName=Notepad-ish (mine)\n", true);
    TextFieldWindowProcess window({QStringLiteral("--class"), QStringLiteral("Notepadish")});
    ASSERT_TRUE(window.isReady());
    EXPECT_EQ(application.focused(),
              (FocusedApplication{QStringLiteral("notepadish"), QStringLiteral("Notepad-ish (mine)")}));
}

TEST_F(X11ActiveApplicationTest, WithoutAnEntryTheWindowClassIsIdentifierAndName) {
    install(QStringLiteral("other.desktop"), "[Desktop Entry]\nName=Other\nStartupWMClass=Other\n");
    TextFieldWindowProcess window({QStringLiteral("--class"), QStringLiteral("Unlisted")});
    ASSERT_TRUE(window.isReady());
    EXPECT_EQ(application.focused(),
              (FocusedApplication{QStringLiteral("Unlisted"), QStringLiteral("Unlisted")}));
}

TEST_F(X11ActiveApplicationTest, TheWindowManagersActiveWindowComesFirst) {
    TextFieldWindowProcess first({QStringLiteral("--class"), QStringLiteral("Firstapp")});
    ASSERT_TRUE(first.isReady());
    TextFieldWindowProcess second({QStringLiteral("--class"), QStringLiteral("Secondapp")});
    ASSERT_TRUE(second.isReady());
    EXPECT_EQ(application.focused()->identifier, QStringLiteral("Secondapp")); // the input focus

    // A window manager announces the first window as the active one.
    Display* display = XOpenDisplay(nullptr);
    ASSERT_NE(display, nullptr);
    Window active = windowOfClass(display, "Firstapp");
    ASSERT_NE(active, static_cast<Window>(None));
    XChangeProperty(display, DefaultRootWindow(display), XInternAtom(display, "_NET_ACTIVE_WINDOW", False),
                    XA_WINDOW, 32, PropModeReplace, reinterpret_cast<unsigned char*>(&active), 1);
    XSync(display, False);
    EXPECT_EQ(application.focused()->identifier, QStringLiteral("Firstapp"));
    XDeleteProperty(display, DefaultRootWindow(display), XInternAtom(display, "_NET_ACTIVE_WINDOW", False));
    XCloseDisplay(display);
}

TEST_F(X11ActiveApplicationTest, ANewEntryIsFoundWithoutRestarting) {
    TextFieldWindowProcess window({QStringLiteral("--class"), QStringLiteral("Latecomer")});
    ASSERT_TRUE(window.isReady());
    EXPECT_EQ(application.focused()->displayName, QStringLiteral("Latecomer"));
    install(QStringLiteral("latecomer.desktop"), "[Desktop Entry]\nName=Late Comer\n");
    EXPECT_EQ(application.focused()->displayName, QStringLiteral("Late Comer"));
}
