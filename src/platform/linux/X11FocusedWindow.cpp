#include "platform/linux/X11FocusedWindow.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace murmurly {

namespace {

Window activeWindow(Display* display) {
    const Atom property = XInternAtom(display, "_NET_ACTIVE_WINDOW", True);
    if (property == None) return None;
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long after = 0;
    unsigned char* data = nullptr;
    Window window = None;
    if (XGetWindowProperty(display, DefaultRootWindow(display), property, 0, 1, False, XA_WINDOW, &type,
                           &format, &count, &after, &data) == Success &&
        data) {
        if (type == XA_WINDOW && format == 32 && count == 1) window = *reinterpret_cast<Window*>(data);
        XFree(data);
    }
    return window;
}

} // namespace

std::optional<X11FocusedWindow> X11FocusedWindow::find(_XDisplay* display) {
    Window window = activeWindow(display);
    if (window == None) {
        int revert = 0;
        XGetInputFocus(display, &window, &revert);
    }
    const Window root = DefaultRootWindow(display);
    // The focus may sit on a child of the application's top-level window: walk up to the first
    // window that names its application.
    while (window != None && window != PointerRoot && window != root) {
        XClassHint hint{nullptr, nullptr};
        if (XGetClassHint(display, window, &hint)) {
            X11FocusedWindow found;
            found.window = window;
            found.instanceName = QString::fromLocal8Bit(hint.res_name ? hint.res_name : "");
            found.className = QString::fromLocal8Bit(hint.res_class ? hint.res_class : "");
            if (hint.res_name) XFree(hint.res_name);
            if (hint.res_class) XFree(hint.res_class);
            return found;
        }
        Window rootReturn = None;
        Window parent = None;
        Window* children = nullptr;
        unsigned int childCount = 0;
        if (!XQueryTree(display, window, &rootReturn, &parent, &children, &childCount)) break;
        if (children) XFree(children);
        window = parent;
    }
    return std::nullopt;
}

} // namespace murmurly
