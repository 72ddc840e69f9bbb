#pragma once

#include <QByteArray>
#include <QList>

#include <chrono>
#include <cstdint>
#include <optional>

struct wl_display;
struct wl_interface;
struct wl_registry;

namespace murmurly {

// A connection of this program's own to a Wayland compositor, with the globals the compositor
// announces on it. Every wait is bounded: a compositor that stops answering makes the calls
// fail, never hang. Used by one thread at a time.
class WaylandConnection {
public:
    struct Global {
        std::uint32_t name = 0;
        QByteArray interface;
        std::uint32_t version = 0;
    };

    // How long connecting waits for the list of globals.
    static constexpr std::chrono::milliseconds defaultLimit{2000};

    // `socket` is a socket name in XDG_RUNTIME_DIR or an absolute path; empty means the
    // WAYLAND_DISPLAY of the environment (and no connection when it is unset).
    explicit WaylandConnection(const QByteArray& socket = {}, std::chrono::milliseconds limit = defaultLimit);
    ~WaylandConnection();
    WaylandConnection(const WaylandConnection&) = delete;
    WaylandConnection& operator=(const WaylandConnection&) = delete;

    // Connected, the globals arrived in time, and no protocol or socket error since.
    bool isConnected() const;
    wl_display* display() const { return m_display; }

    const QList<Global>& globals() const { return m_globals; }
    std::optional<Global> global(const char* interface) const;
    // Binds the global at `version` or the compositor's own, whichever is lower.
    void* bind(const Global& global, const wl_interface* interface, std::uint32_t version) const;

    // Waits until the compositor has handled every request sent so far, dispatching the events
    // that come meanwhile. False on time-out or a broken connection.
    bool roundtrip(std::chrono::milliseconds limit = defaultLimit);
    // Reads and dispatches what has arrived, without waiting. False when the connection broke.
    bool dispatchWaiting();

    // The globals of the compositor at `socket`, or nothing when none answers in time.
    static std::optional<QList<QByteArray>> interfacesAt(const QByteArray& socket = {},
                                                         std::chrono::milliseconds limit = defaultLimit);

private:
    static void globalAdded(void* data, wl_registry* registry, std::uint32_t name, const char* interface,
                            std::uint32_t version);
    static void globalRemoved(void* data, wl_registry* registry, std::uint32_t name);

    wl_display* m_display = nullptr;
    wl_registry* m_registry = nullptr;
    QList<Global> m_globals;
    bool m_listed = false;
};

} // namespace murmurly
