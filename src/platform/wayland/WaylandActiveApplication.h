#pragma once

#include "core/ActiveApplication.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <functional>
#include <memory>

class QSocketNotifier;
struct zwlr_foreign_toplevel_handle_v1;
struct zwlr_foreign_toplevel_manager_v1;

namespace murmurly {

class WaylandConnection;

// The focused application on a Wayland compositor that lists its windows to other programs (the
// wlr foreign-toplevel protocol: sway, Hyprland, labwc, river, …): the activated window's app id,
// which Wayland applications set to the id of their desktop entry. The compositor tells of every
// change as it happens; the connection is read on the main thread whenever something arrives, so
// the answer is current and costs no wait. Used on the main thread.
class WaylandActiveApplication final : public ActiveApplication {
public:
    // The application for an app id: its identifier and display name (from the desktop entries).
    using Naming = std::function<FocusedApplication(const QString& appId)>;

    static constexpr const char* protocol = "zwlr_foreign_toplevel_manager_v1";

    // `socket` as for WaylandConnection: empty means WAYLAND_DISPLAY. Without `naming`, the app id
    // is both identifier and name.
    explicit WaylandActiveApplication(const QByteArray& socket = {}, Naming naming = {});
    ~WaylandActiveApplication() override;
    WaylandActiveApplication(const WaylandActiveApplication&) = delete;
    WaylandActiveApplication& operator=(const WaylandActiveApplication&) = delete;

    // Connected to a compositor that lists its windows.
    bool isAvailable() const;

    // The activated window's app id; absent when no window is activated, the activated one has no
    // app id, or the compositor went away.
    std::optional<QString> focusedAppId() const;
    std::optional<FocusedApplication> focused() const override;

private:
    struct Toplevel;

    static void toplevelAdded(void* data, zwlr_foreign_toplevel_manager_v1*,
                              zwlr_foreign_toplevel_handle_v1* handle);
    static void managerFinished(void* data, zwlr_foreign_toplevel_manager_v1*);
    void readEvents() const;
    void forget(Toplevel* toplevel);

    std::unique_ptr<WaylandConnection> m_connection;
    zwlr_foreign_toplevel_manager_v1* m_manager = nullptr;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QList<Toplevel*> m_toplevels; // owned
    Naming m_naming;
};

} // namespace murmurly
