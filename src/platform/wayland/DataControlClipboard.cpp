#include "platform/wayland/DataControlClipboard.h"

#include "core/Log.h"
#include "platform/wayland/WaylandConnection.h"

#include "ext-data-control-v1-client-protocol.h"
#include "wlr-data-control-unstable-v1-client-protocol.h"

#include <wayland-client.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <fcntl.h>
#include <functional>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace murmurly {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// The two data-control protocols carry the same messages in the same order; only the interface
// names differ. The opcodes below are those of both.
struct DataControlProtocol {
    const char* managerName;
    const wl_interface* manager;
    const wl_interface* device;
    const wl_interface* source;
    const wl_interface* offer;
};

const DataControlProtocol protocols[] = {
    {"ext_data_control_manager_v1", &ext_data_control_manager_v1_interface,
     &ext_data_control_device_v1_interface, &ext_data_control_source_v1_interface,
     &ext_data_control_offer_v1_interface},
    {"zwlr_data_control_manager_v1", &zwlr_data_control_manager_v1_interface,
     &zwlr_data_control_device_v1_interface, &zwlr_data_control_source_v1_interface,
     &zwlr_data_control_offer_v1_interface},
};

constexpr std::uint32_t managerCreateDataSource = 0;
constexpr std::uint32_t managerGetDataDevice = 1;
constexpr std::uint32_t managerDestroy = 2;
constexpr std::uint32_t deviceSetSelection = 0;
constexpr std::uint32_t deviceDestroy = 1;
constexpr std::uint32_t sourceOffer = 0;
constexpr std::uint32_t sourceDestroy = 1;
constexpr std::uint32_t offerReceive = 0;
constexpr std::uint32_t offerDestroy = 1;

// Event handlers in the order of each interface's events.
struct DeviceListener {
    void (*dataOffer)(void*, wl_proxy*, wl_proxy*);
    void (*selection)(void*, wl_proxy*, wl_proxy*);
    void (*finished)(void*, wl_proxy*);
    void (*primarySelection)(void*, wl_proxy*, wl_proxy*);
};
struct SourceListener {
    void (*send)(void*, wl_proxy*, const char*, std::int32_t);
    void (*cancelled)(void*, wl_proxy*);
};
struct OfferListener {
    void (*offer)(void*, wl_proxy*, const char*);
};

void destroyRequest(wl_proxy* proxy, std::uint32_t opcode) {
    wl_proxy_marshal_flags(proxy, opcode, nullptr, wl_proxy_get_version(proxy), WL_MARSHAL_FLAG_DESTROY);
}

// How long a call waits for the clipboard thread to take it up.
constexpr auto callLimit = 2000ms;

} // namespace

const QList<QByteArray>& DataControlClipboard::textTypes() {
    static const QList<QByteArray> types = {
        QByteArrayLiteral("text/plain;charset=utf-8"),
        QByteArrayLiteral("text/plain"),
        QByteArrayLiteral("UTF8_STRING"),
        QByteArrayLiteral("x-kde-passwordManagerHint"),
    };
    return types;
}

// Everything the clipboard thread owns, and the queue through which the main thread asks it to
// act. Wayland objects are touched only on that thread.
struct DataControlClipboard::Link {
    using Types = QList<QPair<QByteArray, QByteArray>>;

    struct Offer {
        wl_proxy* proxy = nullptr;
        QList<QByteArray> types;
    };
    struct Source {
        wl_proxy* proxy = nullptr;
        Types types;
    };
    // A type being handed to an application that asked for it.
    struct Sending {
        int fd = -1;
        QByteArray bytes;
        qsizetype written = 0;
        Clock::time_point deadline;
    };

    // Shared with the main thread.
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> tasks;
    std::atomic<bool> stopping{false};
    std::atomic<bool> alive{false};
    std::uint64_t syncsDone = 0;
    std::uint64_t syncsSent = 0; // by the clipboard thread
    int wakeFd = -1;
    std::thread thread;
    QByteArray protocolName;

    // The clipboard thread's own.
    std::unique_ptr<WaylandConnection> connection;
    const DataControlProtocol* protocol = nullptr;
    wl_proxy* seat = nullptr;
    wl_proxy* manager = nullptr;
    wl_proxy* device = nullptr;
    std::vector<std::unique_ptr<Offer>> offers;
    Offer* selection = nullptr;
    std::vector<std::unique_ptr<Source>> sources;
    std::vector<Sending> sendings;
    // Syncs sent and not answered yet, destroyed with the connection if they never are.
    std::vector<wl_callback*> syncs;

    bool connect(const QByteArray& socket);
    void run();
    void serveSendings();
    void tearDown();
    void wake();

    // Runs `work` on the clipboard thread and returns its result, or nothing when the thread is
    // gone or did not take it up in time.
    template <typename Result> std::optional<Result> call(std::function<Result()> work);
    // Waits until the compositor has handled every request sent so far.
    bool waitForCompositor();

    void dropOffer(Offer* offer);
    void setSelection(const Types& types);

    static const DeviceListener deviceListener;
    static const SourceListener sourceListener;
    static const OfferListener offerListener;
};

const DeviceListener DataControlClipboard::Link::deviceListener{
    [](void* data, wl_proxy*, wl_proxy* offer) {
        auto* link = static_cast<Link*>(data);
        auto entry = std::make_unique<Offer>();
        entry->proxy = offer;
        wl_proxy_add_listener(offer,
                              reinterpret_cast<void (**)(void)>(const_cast<OfferListener*>(&offerListener)),
                              entry.get());
        link->offers.push_back(std::move(entry));
    },
    [](void* data, wl_proxy*, wl_proxy* offer) {
        auto* link = static_cast<Link*>(data);
        Offer* previous = link->selection;
        link->selection = offer ? static_cast<Offer*>(wl_proxy_get_user_data(offer)) : nullptr;
        if (previous && previous != link->selection) link->dropOffer(previous);
    },
    [](void* data, wl_proxy*) {
        auto* link = static_cast<Link*>(data);
        qCWarning(lcApp, "The compositor withdrew the clipboard of its seat");
        destroyRequest(link->device, deviceDestroy);
        link->device = nullptr;
        link->selection = nullptr;
    },
    [](void* data, wl_proxy*, wl_proxy* offer) {
        // The primary selection is not this program's business.
        if (offer) static_cast<Link*>(data)->dropOffer(static_cast<Offer*>(wl_proxy_get_user_data(offer)));
    },
};

const SourceListener DataControlClipboard::Link::sourceListener{
    [](void* data, wl_proxy* proxy, const char* type, std::int32_t fd) {
        auto* link = static_cast<Link*>(data);
        const auto source = std::find_if(link->sources.begin(), link->sources.end(),
                                         [proxy](const auto& entry) { return entry->proxy == proxy; });
        const QByteArray wanted(type);
        if (source != link->sources.end()) {
            for (const auto& [name, bytes] : (*source)->types) {
                if (name != wanted) continue;
                fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
                link->sendings.push_back({fd, bytes, 0, Clock::now() + sendLimit});
                return;
            }
        }
        close(fd);
    },
    [](void* data, wl_proxy* proxy) {
        // Another owner took the clipboard: this offer is over.
        auto* link = static_cast<Link*>(data);
        std::erase_if(link->sources, [proxy](const auto& entry) { return entry->proxy == proxy; });
        destroyRequest(proxy, sourceDestroy);
    },
};

const OfferListener DataControlClipboard::Link::offerListener{
    [](void* data, wl_proxy*, const char* type) {
        auto* offer = static_cast<Offer*>(data);
        const QByteArray name(type);
        if (!offer->types.contains(name)) offer->types.append(name);
    },
};

bool DataControlClipboard::Link::connect(const QByteArray& socket) {
    connection = std::make_unique<WaylandConnection>(socket);
    if (!connection->isConnected()) return false;
    const auto seatGlobal = connection->global("wl_seat");
    if (!seatGlobal) return false;
    for (const DataControlProtocol& candidate : protocols) {
        if (const auto global = connection->global(candidate.managerName)) {
            protocol = &candidate;
            manager = static_cast<wl_proxy*>(connection->bind(*global, candidate.manager, 1));
            break;
        }
    }
    if (!manager) return false;
    seat = static_cast<wl_proxy*>(connection->bind(*seatGlobal, &wl_seat_interface, 1));
    device = wl_proxy_marshal_flags(manager, managerGetDataDevice, protocol->device,
                                    wl_proxy_get_version(manager), 0, nullptr, seat);
    wl_proxy_add_listener(
        device, reinterpret_cast<void (**)(void)>(const_cast<DeviceListener*>(&deviceListener)), this);
    // The current selection arrives at once.
    if (!connection->roundtrip()) return false;
    protocolName = protocol->managerName;
    return true;
}

void DataControlClipboard::Link::wake() {
    const std::uint64_t one = 1;
    if (write(wakeFd, &one, sizeof one) < 0) {
        // The counter cannot overflow in practice; a failed wake only delays the thread.
    }
}

void DataControlClipboard::Link::run() {
    // A reader that closes its end early must cost a failed write, not the process.
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);

    wl_display* display = connection->display();
    while (!stopping) {
        bool broken = false;
        while (wl_display_prepare_read(display) != 0) {
            if (wl_display_dispatch_pending(display) < 0) {
                broken = true;
                break;
            }
        }
        if (broken) break;
        if (wl_display_flush(display) < 0 && errno != EAGAIN) {
            wl_display_cancel_read(display);
            break;
        }
        std::vector<pollfd> fds{{wl_display_get_fd(display), POLLIN, 0}, {wakeFd, POLLIN, 0}};
        for (const Sending& sending : sendings)
            fds.push_back({sending.fd, POLLOUT, 0});
        const int ready = poll(fds.data(), fds.size(), 250);
        if (ready > 0 && (fds[0].revents & POLLIN)) {
            if (wl_display_read_events(display) < 0) break;
        } else {
            wl_display_cancel_read(display);
        }
        if (fds[0].revents & (POLLERR | POLLHUP)) break;
        if (wl_display_dispatch_pending(display) < 0) break;

        if (fds[1].revents & POLLIN) {
            std::uint64_t count = 0;
            if (read(wakeFd, &count, sizeof count) < 0) count = 0;
        }
        std::deque<std::function<void()>> work;
        {
            const std::lock_guard lock(mutex);
            work.swap(tasks);
        }
        for (auto& task : work)
            task();
        serveSendings();
    }
    if (!stopping)
        qCWarning(lcApp, "The connection to the Wayland compositor broke; the clipboard is out of reach");
    tearDown();
}

void DataControlClipboard::Link::serveSendings() {
    const auto now = Clock::now();
    std::erase_if(sendings, [now](Sending& sending) {
        while (sending.written < sending.bytes.size()) {
            const qsizetype chunk = std::min<qsizetype>(sending.bytes.size() - sending.written, 1 << 16);
            const ssize_t put = write(sending.fd, sending.bytes.constData() + sending.written,
                                      static_cast<std::size_t>(chunk));
            if (put > 0) {
                sending.written += put;
                sending.deadline = now + sendLimit; // a reader that keeps reading gets it all
                continue;
            }
            if (put < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) && now < sending.deadline)
                return false; // the reader is still reading
            break;            // the reader went away or is too slow
        }
        close(sending.fd);
        return true;
    });
}

void DataControlClipboard::Link::tearDown() {
    {
        const std::lock_guard lock(mutex);
        alive = false;
        tasks.clear();
    }
    changed.notify_all();
    for (const Sending& sending : sendings)
        close(sending.fd);
    sendings.clear();
    const bool usable = connection && connection->isConnected();
    for (const auto& offer : offers)
        usable ? destroyRequest(offer->proxy, offerDestroy) : wl_proxy_destroy(offer->proxy);
    offers.clear();
    selection = nullptr;
    for (const auto& source : sources)
        usable ? destroyRequest(source->proxy, sourceDestroy) : wl_proxy_destroy(source->proxy);
    sources.clear();
    if (device) usable ? destroyRequest(device, deviceDestroy) : wl_proxy_destroy(device);
    if (manager) usable ? destroyRequest(manager, managerDestroy) : wl_proxy_destroy(manager);
    if (seat) wl_proxy_destroy(seat);
    device = manager = seat = nullptr;
    for (wl_callback* callback : syncs)
        wl_callback_destroy(callback);
    syncs.clear();
    if (usable) wl_display_flush(connection->display());
    connection.reset();
}

void DataControlClipboard::Link::dropOffer(Offer* offer) {
    if (!offer) return;
    if (selection == offer) selection = nullptr;
    destroyRequest(offer->proxy, offerDestroy);
    std::erase_if(offers, [offer](const auto& entry) { return entry.get() == offer; });
}

void DataControlClipboard::Link::setSelection(const Types& types) {
    if (!device) return;
    wl_proxy* source = nullptr;
    if (!types.isEmpty()) {
        source = wl_proxy_marshal_flags(manager, managerCreateDataSource, protocol->source,
                                        wl_proxy_get_version(manager), 0, nullptr);
        wl_proxy_add_listener(
            source, reinterpret_cast<void (**)(void)>(const_cast<SourceListener*>(&sourceListener)), this);
        for (const auto& entry : types)
            wl_proxy_marshal_flags(source, sourceOffer, nullptr, wl_proxy_get_version(source), 0,
                                   entry.first.constData());
        auto entry = std::make_unique<Source>();
        entry->proxy = source;
        entry->types = types;
        sources.push_back(std::move(entry));
    }
    wl_proxy_marshal_flags(device, deviceSetSelection, nullptr, wl_proxy_get_version(device), 0, source);
}

template <typename Result>
std::optional<Result> DataControlClipboard::Link::call(std::function<Result()> work) {
    auto answer = std::make_shared<std::optional<Result>>();
    {
        const std::lock_guard lock(mutex);
        if (!alive) return std::nullopt;
        tasks.push_back([this, work = std::move(work), answer] {
            Result result = work();
            {
                const std::lock_guard lock(mutex);
                *answer = std::move(result);
            }
            changed.notify_all();
        });
    }
    wake();
    std::unique_lock lock(mutex);
    changed.wait_for(lock, callLimit, [&] { return answer->has_value() || !alive; });
    return *answer;
}

bool DataControlClipboard::Link::waitForCompositor() {
    static const wl_callback_listener syncListener{[](void* data, wl_callback* callback, std::uint32_t) {
        auto* link = static_cast<Link*>(data);
        std::erase(link->syncs, callback);
        wl_callback_destroy(callback);
        {
            const std::lock_guard lock(link->mutex);
            ++link->syncsDone;
        }
        link->changed.notify_all();
    }};
    // Syncs are answered in the order they were sent: this one is done once the count reaches it.
    const auto target = call<std::uint64_t>([this] {
        wl_callback* callback = wl_display_sync(connection->display());
        wl_callback_add_listener(callback, &syncListener, this);
        syncs.push_back(callback);
        return ++syncsSent;
    });
    if (!target) return false;
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, callLimit, [&] { return syncsDone >= *target || !alive; }) && alive;
}

DataControlClipboard::DataControlClipboard(const QByteArray& socket)
    : m_link(std::make_unique<Link>()) {
    m_link->wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_link->wakeFd < 0 || !m_link->connect(socket)) {
        m_link->tearDown();
        return;
    }
    m_link->alive = true;
    m_link->thread = std::thread([link = m_link.get()] { link->run(); });
}

DataControlClipboard::~DataControlClipboard() {
    m_link->stopping = true;
    if (m_link->thread.joinable()) {
        m_link->wake();
        m_link->thread.join();
    }
    if (m_link->wakeFd >= 0) close(m_link->wakeFd);
}

bool DataControlClipboard::isAvailable() const {
    return m_link->alive;
}

QByteArray DataControlClipboard::protocol() const {
    return m_link->alive ? m_link->protocolName : QByteArray();
}

ClipboardSnapshot DataControlClipboard::snapshot() {
    struct Reading {
        QByteArray type;
        int fd = -1;
        QByteArray bytes;
        bool complete = false;
    };
    using Readings = std::vector<Reading>;
    // The thread asks the owner for every type at once; the owner writes them while this thread
    // reads, so a slow type does not hold up the others.
    const auto asked =
        m_link->call<std::optional<Readings>>([link = m_link.get()]() -> std::optional<Readings> {
            if (!link->selection) return std::nullopt;
            Readings readings;
            for (const QByteArray& type : link->selection->types) {
                int ends[2];
                // Only this end is non-blocking: the other one goes to the owner, who may write in
                // blocking mode.
                if (pipe2(ends, O_CLOEXEC) != 0) continue;
                fcntl(ends[0], F_SETFL, fcntl(ends[0], F_GETFL) | O_NONBLOCK);
                wl_proxy_marshal_flags(link->selection->proxy, offerReceive, nullptr,
                                       wl_proxy_get_version(link->selection->proxy), 0, type.constData(),
                                       ends[1]);
                close(ends[1]);
                readings.push_back({type, ends[0], {}, false});
            }
            wl_display_flush(link->connection->display());
            return readings;
        });
    if (!asked || !*asked) return {};
    Readings readings = std::move(**asked);

    const auto deadline = Clock::now() + snapshotLimit;
    auto lastProgress = Clock::now();
    std::vector<char> buffer(1 << 20);
    for (;;) {
        std::vector<pollfd> fds;
        std::vector<Reading*> open;
        for (Reading& reading : readings) {
            if (reading.fd < 0) continue;
            fds.push_back({reading.fd, POLLIN, 0});
            open.push_back(&reading);
        }
        if (fds.empty()) break;
        const auto until = std::min(deadline, lastProgress + snapshotIdleLimit);
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now());
        if (left.count() <= 0 || poll(fds.data(), fds.size(), static_cast<int>(left.count())) <= 0) break;
        for (std::size_t i = 0; i < fds.size(); ++i) {
            if (!fds[i].revents) continue;
            Reading& reading = *open[i];
            const ssize_t got = read(reading.fd, buffer.data(), buffer.size());
            if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
            if (got > 0) {
                reading.bytes.append(buffer.data(), got);
                lastProgress = Clock::now();
            }
            if (got == 0) reading.complete = true;
            if (got <= 0 || static_cast<std::size_t>(reading.bytes.size()) > largestType) {
                close(reading.fd);
                reading.fd = -1;
            }
        }
    }
    ClipboardItem item;
    for (Reading& reading : readings) {
        if (reading.fd >= 0) {
            qCWarning(lcApp, "The clipboard's owner did not hand over %s in time; it is left out",
                      reading.type.constData());
            close(reading.fd);
        } else if (!reading.complete) {
            qCWarning(lcApp, "The clipboard's %s could not be read in full; it is left out",
                      reading.type.constData());
        }
        if (reading.complete) item.set(QString::fromUtf8(reading.type), reading.bytes);
    }
    return {item};
}

void DataControlClipboard::writeText(const QString& text) {
    Link::Types types;
    const QByteArray utf8 = text.toUtf8();
    for (const QByteArray& type : textTypes())
        types.append({type, type == "x-kde-passwordManagerHint" ? QByteArrayLiteral("secret") : utf8});
    m_link->call<bool>([link = m_link.get(), types] {
        link->setSelection(types);
        return true;
    });
    // The paste chord travels on another connection: the compositor must hold the text before it.
    m_link->waitForCompositor();
}

void DataControlClipboard::restore(const ClipboardSnapshot& snapshot) {
    Link::Types types;
    if (!snapshot.isEmpty())
        for (const auto& [type, bytes] : snapshot.first().entries())
            types.append({type.toUtf8(), bytes});
    m_link->call<bool>([link = m_link.get(), types] {
        link->setSelection(types);
        return true;
    });
    m_link->waitForCompositor();
}

} // namespace murmurly
