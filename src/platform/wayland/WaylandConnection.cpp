#include "platform/wayland/WaylandConnection.h"

#include <wayland-client.h>

#include <cerrno>
#include <poll.h>

namespace murmurly {

namespace {

using Clock = std::chrono::steady_clock;

void syncDone(void* data, wl_callback*, std::uint32_t) {
    *static_cast<bool*>(data) = true;
}

const wl_callback_listener syncListener{&syncDone};

} // namespace

WaylandConnection::WaylandConnection(const QByteArray& socket, std::chrono::milliseconds limit) {
    if (socket.isEmpty() && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) return;
    m_display = wl_display_connect(socket.isEmpty() ? nullptr : socket.constData());
    if (!m_display) return;
    static const wl_registry_listener listener{&WaylandConnection::globalAdded,
                                               &WaylandConnection::globalRemoved};
    m_registry = wl_display_get_registry(m_display);
    wl_registry_add_listener(m_registry, &listener, this);
    m_listed = roundtrip(limit);
}

WaylandConnection::~WaylandConnection() {
    if (m_registry) wl_registry_destroy(m_registry);
    if (m_display) wl_display_disconnect(m_display);
}

bool WaylandConnection::isConnected() const {
    return m_display && m_listed && wl_display_get_error(m_display) == 0;
}

std::optional<WaylandConnection::Global> WaylandConnection::global(const char* interface) const {
    for (const Global& global : m_globals)
        if (global.interface == interface) return global;
    return std::nullopt;
}

void* WaylandConnection::bind(const Global& global, const wl_interface* interface,
                              std::uint32_t version) const {
    return wl_registry_bind(m_registry, global.name, interface, std::min(version, global.version));
}

bool WaylandConnection::roundtrip(std::chrono::milliseconds limit) {
    if (!m_display || wl_display_get_error(m_display) != 0) return false;
    bool done = false;
    wl_callback* callback = wl_display_sync(m_display);
    wl_callback_add_listener(callback, &syncListener, &done);
    const auto deadline = Clock::now() + limit;
    bool ok = true;
    while (!done) {
        while (wl_display_prepare_read(m_display) != 0) {
            if (wl_display_dispatch_pending(m_display) < 0) {
                ok = false;
                break;
            }
        }
        if (!ok || done) {
            if (ok) wl_display_cancel_read(m_display);
            break;
        }
        if (wl_display_flush(m_display) < 0 && errno != EAGAIN) {
            wl_display_cancel_read(m_display);
            ok = false;
            break;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd fd{wl_display_get_fd(m_display), POLLIN, 0};
        if (left.count() <= 0 || poll(&fd, 1, static_cast<int>(left.count())) <= 0) {
            wl_display_cancel_read(m_display);
            ok = false;
            break;
        }
        if (wl_display_read_events(m_display) < 0 || wl_display_dispatch_pending(m_display) < 0) {
            ok = false;
            break;
        }
    }
    wl_callback_destroy(callback);
    return ok && done;
}

bool WaylandConnection::dispatchWaiting() {
    if (!m_display || wl_display_get_error(m_display) != 0) return false;
    while (wl_display_prepare_read(m_display) != 0)
        if (wl_display_dispatch_pending(m_display) < 0) return false;
    wl_display_flush(m_display);
    pollfd fd{wl_display_get_fd(m_display), POLLIN, 0};
    if (poll(&fd, 1, 0) > 0) {
        if (wl_display_read_events(m_display) < 0) return false;
    } else {
        wl_display_cancel_read(m_display);
    }
    return wl_display_dispatch_pending(m_display) >= 0;
}

std::optional<QList<QByteArray>> WaylandConnection::interfacesAt(const QByteArray& socket,
                                                                 std::chrono::milliseconds limit) {
    const WaylandConnection connection(socket, limit);
    if (!connection.isConnected()) return std::nullopt;
    QList<QByteArray> names;
    for (const Global& global : connection.globals())
        names << global.interface;
    return names;
}

void WaylandConnection::globalAdded(void* data, wl_registry*, std::uint32_t name, const char* interface,
                                    std::uint32_t version) {
    static_cast<WaylandConnection*>(data)->m_globals.append({name, QByteArray(interface), version});
}

void WaylandConnection::globalRemoved(void* data, wl_registry*, std::uint32_t name) {
    auto& globals = static_cast<WaylandConnection*>(data)->m_globals;
    globals.removeIf([name](const Global& global) { return global.name == name; });
}

} // namespace murmurly
