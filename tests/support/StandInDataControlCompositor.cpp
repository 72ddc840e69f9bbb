// A stand-in Wayland compositor for the tests: one seat and its clipboard, offered through the
// standard data-control protocol (ext_data_control_manager_v1) and, on request, through wlroots'
// (zwlr_data_control_manager_v1), with the selection kept as a compositor keeps it. No outputs,
// no surfaces, no input devices, no primary selection.
//
//   murmurly_stand_in_data_control_compositor SOCKET [options]
//
//   SOCKET                  the socket's name, made in $XDG_RUNTIME_DIR as compositors do
//   --with-wlr              also offer zwlr_data_control_manager_v1
//   --without-ext           do not offer ext_data_control_manager_v1
//   --without-seat          offer no wl_seat
//   --withhold MIME         a type whose owner never hands it over: a client's receive() for it is
//                           not passed on, and the pipe is kept open, unwritten, until the end
//   --freeze-on-selection   stop answering every client once a selection is set (requests are no
//                           longer read nor events sent), as a compositor that hangs would
//
// Output, one line each: "ready" once it listens; "cancelled source" when a source loses the
// selection; "source destroyed by its client"; "withholding MIME"; "frozen".
// It ends on SIGTERM or SIGINT, or when its standard input closes.
#include "ext-data-control-v1-server-protocol.h"
#include "wlr-data-control-unstable-v1-server-protocol.h"

#include <wayland-server.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// Both protocols carry the same messages in the same order; one implementation serves both.
static_assert(EXT_DATA_CONTROL_DEVICE_V1_DATA_OFFER == ZWLR_DATA_CONTROL_DEVICE_V1_DATA_OFFER);
static_assert(EXT_DATA_CONTROL_DEVICE_V1_SELECTION == ZWLR_DATA_CONTROL_DEVICE_V1_SELECTION);
static_assert(EXT_DATA_CONTROL_SOURCE_V1_SEND == ZWLR_DATA_CONTROL_SOURCE_V1_SEND);
static_assert(EXT_DATA_CONTROL_SOURCE_V1_CANCELLED == ZWLR_DATA_CONTROL_SOURCE_V1_CANCELLED);
static_assert(EXT_DATA_CONTROL_OFFER_V1_OFFER == ZWLR_DATA_CONTROL_OFFER_V1_OFFER);

// The protocols' error codes (the same in both): a source set as the selection twice, and a type
// offered after the source was set.
constexpr std::uint32_t deviceErrorUsedSource = 1;
constexpr std::uint32_t sourceErrorInvalidOffer = 1;

// The seat's version: its name event (2) and release request (5) are there.
constexpr int seatVersion = 5;

struct Family {
    const char* name;
    const wl_interface* manager;
    const wl_interface* device;
    const wl_interface* source;
    const wl_interface* offer;
    const void* managerImplementation;
    const void* deviceImplementation;
    const void* sourceImplementation;
    const void* offerImplementation;
};

struct Source {
    wl_resource* resource = nullptr;
    std::vector<std::string> types;
    bool used = false; // set as the selection once; a source serves a single selection
};

struct Device {
    wl_resource* resource = nullptr;
    const Family* family = nullptr;
};

struct Offer {
    wl_resource* resource = nullptr;
    Source* source = nullptr; // none once the selection it showed is over
};

// The seat's state.
Source* selection = nullptr;
std::vector<Device*> devices;
std::vector<Offer*> offers;

// The controls.
std::set<std::string> withheldTypes;
std::vector<int> withheldPipes;
bool freezeOnSelection = false;
bool frozen = false;
bool stopping = false;

void say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void destroyResource(wl_client*, wl_resource* resource) {
    wl_resource_destroy(resource);
}

// Shows the seat's selection to `device`: a new offer with its types, then the selection event.
void sendSelection(const Device& device) {
    if (!selection) {
        wl_resource_post_event(device.resource, EXT_DATA_CONTROL_DEVICE_V1_SELECTION, nullptr);
        return;
    }
    wl_client* client = wl_resource_get_client(device.resource);
    wl_resource* resource =
        wl_resource_create(client, device.family->offer, wl_resource_get_version(device.resource), 0);
    if (!resource) {
        wl_client_post_no_memory(client);
        return;
    }
    auto* offer = new Offer{resource, selection};
    offers.push_back(offer);
    wl_resource_set_implementation(resource, device.family->offerImplementation, offer,
                                   [](wl_resource* gone) {
                                       auto* offer = static_cast<Offer*>(wl_resource_get_user_data(gone));
                                       std::erase(offers, offer);
                                       delete offer;
                                   });
    wl_resource_post_event(device.resource, EXT_DATA_CONTROL_DEVICE_V1_DATA_OFFER, resource);
    for (const std::string& type : selection->types)
        wl_resource_post_event(resource, EXT_DATA_CONTROL_OFFER_V1_OFFER, type.c_str());
    wl_resource_post_event(device.resource, EXT_DATA_CONTROL_DEVICE_V1_SELECTION, resource);
}

// Makes `source` (or nothing) the seat's selection and tells every device.
void setSeatSelection(Source* source) {
    Source* previous = selection;
    selection = source;
    // Offers of the former selection answer no more.
    for (Offer* offer : offers)
        if (offer->source == previous) offer->source = nullptr;
    if (previous && previous != source) {
        wl_resource_post_event(previous->resource, EXT_DATA_CONTROL_SOURCE_V1_CANCELLED);
        say("cancelled source");
    }
    for (const Device* device : devices)
        sendSelection(*device);
}

// ext_data_control_offer_v1 / zwlr_data_control_offer_v1
void receive(wl_client*, wl_resource* resource, const char* type, std::int32_t fd) {
    const auto* offer = static_cast<Offer*>(wl_resource_get_user_data(resource));
    if (!offer->source) {
        close(fd); // the reader sees the end at once
        return;
    }
    if (withheldTypes.contains(type)) {
        withheldPipes.push_back(fd);
        say(std::string("withholding ") + type);
        return;
    }
    // The source's client gets a copy of the pipe; this end is not ours to keep.
    wl_resource_post_event(offer->source->resource, EXT_DATA_CONTROL_SOURCE_V1_SEND, type, fd);
    close(fd);
}

const struct ext_data_control_offer_v1_interface extOffer { &receive, &destroyResource };
const struct zwlr_data_control_offer_v1_interface wlrOffer { &receive, &destroyResource };

// ext_data_control_source_v1 / zwlr_data_control_source_v1
void offerType(wl_client*, wl_resource* resource, const char* type) {
    auto* source = static_cast<Source*>(wl_resource_get_user_data(resource));
    if (source->used) {
        wl_resource_post_error(resource, sourceErrorInvalidOffer, "offer after the source was set");
        return;
    }
    if (std::find(source->types.begin(), source->types.end(), type) == source->types.end())
        source->types.emplace_back(type);
}

void destroySource(wl_client*, wl_resource* resource) {
    say("source destroyed by its client");
    wl_resource_destroy(resource);
}

const struct ext_data_control_source_v1_interface extSource { &offerType, &destroySource };
const struct zwlr_data_control_source_v1_interface wlrSource { &offerType, &destroySource };

void sourceGone(wl_resource* resource) {
    auto* source = static_cast<Source*>(wl_resource_get_user_data(resource));
    for (Offer* offer : offers)
        if (offer->source == source) offer->source = nullptr;
    if (selection == source) {
        // The clipboard's owner went away: the seat has no selection any more.
        selection = nullptr;
        for (const Device* device : devices)
            sendSelection(*device);
    }
    delete source;
}

// ext_data_control_device_v1 / zwlr_data_control_device_v1
void setSelection(wl_client*, wl_resource* resource, wl_resource* sourceResource) {
    Source* source =
        sourceResource ? static_cast<Source*>(wl_resource_get_user_data(sourceResource)) : nullptr;
    if (source) {
        if (source->used) {
            wl_resource_post_error(resource, deviceErrorUsedSource, "this source was already set");
            return;
        }
        source->used = true;
    }
    setSeatSelection(source);
    if (freezeOnSelection && !frozen) {
        frozen = true;
        say("frozen");
    }
}

const struct ext_data_control_device_v1_interface extDevice { &setSelection, &destroyResource };
const struct zwlr_data_control_device_v1_interface wlrDevice { &setSelection, &destroyResource };

// ext_data_control_manager_v1 / zwlr_data_control_manager_v1
void createDataSource(wl_client* client, wl_resource* manager, std::uint32_t id) {
    const auto* family = static_cast<const Family*>(wl_resource_get_user_data(manager));
    wl_resource* resource = wl_resource_create(client, family->source, wl_resource_get_version(manager), id);
    if (!resource) {
        wl_client_post_no_memory(client);
        return;
    }
    wl_resource_set_implementation(resource, family->sourceImplementation, new Source{resource, {}, false},
                                   &sourceGone);
}

void getDataDevice(wl_client* client, wl_resource* manager, std::uint32_t id, wl_resource*) {
    const auto* family = static_cast<const Family*>(wl_resource_get_user_data(manager));
    wl_resource* resource = wl_resource_create(client, family->device, wl_resource_get_version(manager), id);
    if (!resource) {
        wl_client_post_no_memory(client);
        return;
    }
    auto* device = new Device{resource, family};
    devices.push_back(device);
    wl_resource_set_implementation(resource, family->deviceImplementation, device, [](wl_resource* gone) {
        auto* device = static_cast<Device*>(wl_resource_get_user_data(gone));
        std::erase(devices, device);
        delete device;
    });
    // A new device learns the current selection at once.
    sendSelection(*device);
}

const struct ext_data_control_manager_v1_interface extManager {
    &createDataSource, &getDataDevice, &destroyResource
};
const struct zwlr_data_control_manager_v1_interface wlrManager {
    &createDataSource, &getDataDevice, &destroyResource
};

const Family extFamily{"ext_data_control_manager_v1",
                       &ext_data_control_manager_v1_interface,
                       &ext_data_control_device_v1_interface,
                       &ext_data_control_source_v1_interface,
                       &ext_data_control_offer_v1_interface,
                       &extManager,
                       &extDevice,
                       &extSource,
                       &extOffer};
const Family wlrFamily{"zwlr_data_control_manager_v1",
                       &zwlr_data_control_manager_v1_interface,
                       &zwlr_data_control_device_v1_interface,
                       &zwlr_data_control_source_v1_interface,
                       &zwlr_data_control_offer_v1_interface,
                       &wlrManager,
                       &wlrDevice,
                       &wlrSource,
                       &wlrOffer};

void bindManager(wl_client* client, void* data, std::uint32_t version, std::uint32_t id) {
    const auto* family = static_cast<const Family*>(data);
    wl_resource* resource = wl_resource_create(client, family->manager, static_cast<int>(version), id);
    if (!resource) {
        wl_client_post_no_memory(client);
        return;
    }
    wl_resource_set_implementation(resource, family->managerImplementation, data, nullptr);
}

// wl_seat: a seat without pointer, keyboard or touch.
void missingCapability(wl_client*, wl_resource* seat, std::uint32_t) {
    wl_resource_post_error(seat, WL_SEAT_ERROR_MISSING_CAPABILITY, "this seat has no input devices");
}

const struct wl_seat_interface seatImplementation {
    &missingCapability, &missingCapability, &missingCapability, &destroyResource
};

void bindSeat(wl_client* client, void*, std::uint32_t version, std::uint32_t id) {
    wl_resource* resource = wl_resource_create(client, &wl_seat_interface, static_cast<int>(version), id);
    if (!resource) {
        wl_client_post_no_memory(client);
        return;
    }
    wl_resource_set_implementation(resource, &seatImplementation, nullptr, nullptr);
    wl_seat_send_capabilities(resource, 0);
    if (version >= WL_SEAT_NAME_SINCE_VERSION) wl_seat_send_name(resource, "seat0");
}

int stopOnSignal(int, void*) {
    stopping = true;
    return 0;
}

int readInput(int fd, std::uint32_t, void*) {
    char buffer[256];
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) stopping = true;
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    if (argc < 2 || argv[1][0] == '-') {
        std::fprintf(stderr,
                     "usage: %s SOCKET [--with-wlr] [--without-ext] [--without-seat] "
                     "[--withhold MIME]... [--freeze-on-selection]\n",
                     argv[0]);
        return 2;
    }
    const char* socketName = argv[1];
    bool withExt = true;
    bool withWlr = false;
    bool withSeat = true;
    for (int i = 2; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--with-wlr") {
            withWlr = true;
        } else if (option == "--without-ext") {
            withExt = false;
        } else if (option == "--without-seat") {
            withSeat = false;
        } else if (option == "--withhold" && i + 1 < argc) {
            withheldTypes.insert(argv[++i]);
        } else if (option == "--freeze-on-selection") {
            freezeOnSelection = true;
        } else {
            std::fprintf(stderr, "unknown argument %s\n", argv[i]);
            return 2;
        }
    }

    wl_display* display = wl_display_create();
    if (!display) {
        std::fprintf(stderr, "cannot create the display\n");
        return 1;
    }
    if (withSeat) wl_global_create(display, &wl_seat_interface, seatVersion, nullptr, &bindSeat);
    if (withExt)
        wl_global_create(display, &ext_data_control_manager_v1_interface, 1, const_cast<Family*>(&extFamily),
                         &bindManager);
    // Version 1: the primary selection of version 2 is not kept here.
    if (withWlr)
        wl_global_create(display, &zwlr_data_control_manager_v1_interface, 1, const_cast<Family*>(&wlrFamily),
                         &bindManager);
    if (wl_display_add_socket(display, socketName) != 0) {
        std::fprintf(stderr, "cannot listen on %s in XDG_RUNTIME_DIR\n", socketName);
        wl_display_destroy(display);
        return 1;
    }

    // The controls live on a loop of their own, so that a frozen compositor still ends when told.
    wl_event_loop* control = wl_event_loop_create();
    wl_event_source* const controls[] = {
        wl_event_loop_add_signal(control, SIGTERM, &stopOnSignal, nullptr),
        wl_event_loop_add_signal(control, SIGINT, &stopOnSignal, nullptr),
        wl_event_loop_add_fd(control, STDIN_FILENO, WL_EVENT_READABLE, &readInput, nullptr),
    };
    wl_event_loop* clients = wl_display_get_event_loop(display);
    say("ready");

    while (!stopping) {
        if (!frozen) wl_display_flush_clients(display);
        pollfd fds[2] = {{wl_event_loop_get_fd(control), POLLIN, 0},
                         {frozen ? -1 : wl_event_loop_get_fd(clients), POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 && errno != EINTR) break;
        if (fds[0].revents) wl_event_loop_dispatch(control, 0);
        if (!stopping && !frozen && fds[1].revents) wl_event_loop_dispatch(clients, 0);
    }

    for (const int fd : withheldPipes)
        close(fd);
    wl_display_destroy_clients(display);
    wl_display_destroy(display);
    for (wl_event_source* source : controls)
        if (source) wl_event_source_remove(source);
    wl_event_loop_destroy(control);
    return 0;
}
