#include "platform/wayland/WaylandActiveApplication.h"

#include "platform/wayland/WaylandConnection.h"

#include <QSocketNotifier>

#include <wayland-client.h>
#include <wlr-foreign-toplevel-management-unstable-v1-client-protocol.h>

#include <cstring>

namespace murmurly {

// What the compositor said of one window. Its events come in batches that "done" ends; until
// then the new values wait.
struct WaylandActiveApplication::Toplevel {
    WaylandActiveApplication* owner = nullptr;
    zwlr_foreign_toplevel_handle_v1* handle = nullptr;
    QString appId;
    bool activated = false;
    QString pendingAppId;
    bool pendingActivated = false;
    bool hasPendingAppId = false;
    bool hasPendingState = false;
};

namespace {

void ignoreString(void*, zwlr_foreign_toplevel_handle_v1*, const char*) {
}
void ignoreOutput(void*, zwlr_foreign_toplevel_handle_v1*, wl_output*) {
}

} // namespace

WaylandActiveApplication::WaylandActiveApplication(const QByteArray& socket, Naming naming)
    : m_connection(std::make_unique<WaylandConnection>(socket))
    , m_naming(std::move(naming)) {
    if (!m_connection->isConnected()) return;
    const std::optional<WaylandConnection::Global> global = m_connection->global(protocol);
    if (!global) return;
    m_manager = static_cast<zwlr_foreign_toplevel_manager_v1*>(
        m_connection->bind(*global, &zwlr_foreign_toplevel_manager_v1_interface, 2));
    static const zwlr_foreign_toplevel_manager_v1_listener listener{
        &WaylandActiveApplication::toplevelAdded, &WaylandActiveApplication::managerFinished};
    zwlr_foreign_toplevel_manager_v1_add_listener(m_manager, &listener, this);
    // The windows that exist now, with their first batches of events.
    m_connection->roundtrip();
    m_connection->roundtrip();
    m_notifier =
        std::make_unique<QSocketNotifier>(wl_display_get_fd(m_connection->display()), QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { readEvents(); });
}

WaylandActiveApplication::~WaylandActiveApplication() {
    m_notifier.reset();
    for (Toplevel* toplevel : m_toplevels) {
        zwlr_foreign_toplevel_handle_v1_destroy(toplevel->handle);
        delete toplevel;
    }
    if (m_manager) zwlr_foreign_toplevel_manager_v1_destroy(m_manager);
}

bool WaylandActiveApplication::isAvailable() const {
    return m_manager && m_connection->isConnected();
}

void WaylandActiveApplication::readEvents() const {
    if (!m_connection->dispatchWaiting() && m_notifier) {
        // The compositor went away: nothing more will come.
        m_notifier->setEnabled(false);
    }
}

std::optional<QString> WaylandActiveApplication::focusedAppId() const {
    if (!isAvailable()) return std::nullopt;
    readEvents(); // whatever arrived since the event loop last looked
    if (!m_connection->isConnected()) return std::nullopt;
    for (const Toplevel* toplevel : m_toplevels)
        if (toplevel->activated && !toplevel->appId.isEmpty()) return toplevel->appId;
    return std::nullopt;
}

std::optional<FocusedApplication> WaylandActiveApplication::focused() const {
    const std::optional<QString> appId = focusedAppId();
    if (!appId) return std::nullopt;
    if (m_naming) return m_naming(*appId);
    return FocusedApplication{*appId, *appId};
}

void WaylandActiveApplication::toplevelAdded(void* data, zwlr_foreign_toplevel_manager_v1*,
                                             zwlr_foreign_toplevel_handle_v1* handle) {
    auto* self = static_cast<WaylandActiveApplication*>(data);
    auto* toplevel = new Toplevel;
    toplevel->owner = self;
    toplevel->handle = handle;
    self->m_toplevels.append(toplevel);
    static const zwlr_foreign_toplevel_handle_v1_listener listener{
        &ignoreString, // title
        [](void* data, zwlr_foreign_toplevel_handle_v1*, const char* appId) {
            auto* toplevel = static_cast<Toplevel*>(data);
            toplevel->pendingAppId = QString::fromUtf8(appId);
            toplevel->hasPendingAppId = true;
        },
        &ignoreOutput, // output_enter
        &ignoreOutput, // output_leave
        [](void* data, zwlr_foreign_toplevel_handle_v1*, wl_array* states) {
            auto* toplevel = static_cast<Toplevel*>(data);
            bool activated = false;
            const auto* state = static_cast<const std::uint32_t*>(states->data);
            for (std::size_t i = 0; i < states->size / sizeof(std::uint32_t); ++i)
                activated = activated || state[i] == ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_ACTIVATED;
            toplevel->pendingActivated = activated;
            toplevel->hasPendingState = true;
        },
        [](void* data, zwlr_foreign_toplevel_handle_v1*) { // done
            auto* toplevel = static_cast<Toplevel*>(data);
            if (toplevel->hasPendingAppId) toplevel->appId = toplevel->pendingAppId;
            if (toplevel->hasPendingState) toplevel->activated = toplevel->pendingActivated;
            toplevel->hasPendingAppId = toplevel->hasPendingState = false;
        },
        [](void* data, zwlr_foreign_toplevel_handle_v1*) { // closed
            auto* toplevel = static_cast<Toplevel*>(data);
            toplevel->owner->forget(toplevel);
        },
    };
    zwlr_foreign_toplevel_handle_v1_add_listener(handle, &listener, toplevel);
}

void WaylandActiveApplication::managerFinished(void* data, zwlr_foreign_toplevel_manager_v1*) {
    // The compositor will list nothing more; the handles already known stay valid until closed.
    auto* self = static_cast<WaylandActiveApplication*>(data);
    zwlr_foreign_toplevel_manager_v1_destroy(self->m_manager);
    self->m_manager = nullptr;
}

void WaylandActiveApplication::forget(Toplevel* toplevel) {
    m_toplevels.removeOne(toplevel);
    zwlr_foreign_toplevel_handle_v1_destroy(toplevel->handle);
    delete toplevel;
}

} // namespace murmurly
