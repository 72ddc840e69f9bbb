#pragma once

#include <QString>

#include <optional>

struct _XDisplay;

namespace murmurly {

// The top-level window that has the keyboard focus and its WM_CLASS: the window manager's
// _NET_ACTIVE_WINDOW, or the X input focus where no window manager sets it.
class X11FocusedWindow {
public:
    unsigned long window = 0;
    QString instanceName; // WM_CLASS res_name
    QString className;    // WM_CLASS res_class

    // Absent when nothing has the focus or no window up the tree carries a WM_CLASS.
    static std::optional<X11FocusedWindow> find(_XDisplay* display);
};

} // namespace murmurly
