#include "platform/linux/X11ConnectionLoss.h"

#include "core/Log.h"

// Xlib after Qt: its macros (Bool, Status, None) would break Qt's headers.
#include <X11/Xlib.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

namespace murmurly::X11ConnectionLoss {

namespace {

std::mutex connectionsMutex;
std::vector<Display*> survivingConnections;
std::atomic<XIOErrorHandler> otherIOErrorHandler{nullptr};

int ioError(Display* display) {
    {
        std::lock_guard lock(connectionsMutex);
        if (std::find(survivingConnections.begin(), survivingConnections.end(), display) !=
            survivingConnections.end()) {
            qCWarning(lcApp, "Lost a connection to the X server");
            return 0;
        }
    }
    if (const XIOErrorHandler other = otherIOErrorHandler.load()) return other(display);
    return 0;
}

} // namespace

void survive(Display* display, LostHandler lost, void* data) {
    XSetIOErrorExitHandler(display, lost, data);
    std::lock_guard lock(connectionsMutex);
    survivingConnections.push_back(display);
    // Installed again every time: a GUI toolkit connecting later may have replaced it.
    const XIOErrorHandler previous = XSetIOErrorHandler(&ioError);
    if (previous != &ioError) otherIOErrorHandler = previous;
}

void forget(Display* display) {
    std::lock_guard lock(connectionsMutex);
    // One entry only: a connection opened since at the same address may have its own.
    const auto it = std::find(survivingConnections.begin(), survivingConnections.end(), display);
    if (it != survivingConnections.end()) survivingConnections.erase(it);
}

} // namespace murmurly::X11ConnectionLoss
