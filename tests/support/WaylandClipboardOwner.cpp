// Another Wayland application that owns the clipboard, for the tests: it puts a selection of the
// given types on the compositor's seat through the data-control protocol and hands the types out
// until it is ended or loses the selection. Some types can be made to misbehave.
//
//   --type MIME BASE64   a type with its bytes
//   --large MIME N       a type of N bytes (a repeating pattern)
//   --stall MIME         a type whose bytes never come: the pipe is kept open and never written
//
// Output: "owner" once the compositor holds the selection; "sent MIME" after each complete type;
// "cancelled" when another client took the clipboard.
#include "wlr-data-control-unstable-v1-client-protocol.h"

#include <wayland-client.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

struct Type {
    std::string bytes;
    bool stall = false;
};

std::map<std::string, Type> types;
std::vector<std::string> order;
std::vector<int> stalled;
bool cancelled = false;

std::string fromBase64(const char* text) {
    static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    unsigned value = 0;
    int bits = 0;
    for (const char* c = text; *c && *c != '='; ++c) {
        const auto at = alphabet.find(*c);
        if (at == std::string::npos) continue;
        value = (value << 6) | static_cast<unsigned>(at);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<char>((value >> bits) & 0xff));
        }
    }
    return out;
}

void say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void send(void*, zwlr_data_control_source_v1*, const char* mime, int32_t fd) {
    const auto type = types.find(mime);
    if (type == types.end()) {
        close(fd);
        return;
    }
    if (type->second.stall) {
        stalled.push_back(fd);
        return;
    }
    // Blocking writes: the reader reads while this client waits.
    const std::string& bytes = type->second.bytes;
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t put = write(fd, bytes.data() + written, bytes.size() - written);
        if (put <= 0) break;
        written += static_cast<std::size_t>(put);
    }
    close(fd);
    if (written == bytes.size()) say(std::string("sent ") + mime);
}

void sourceCancelled(void*, zwlr_data_control_source_v1*) {
    cancelled = true;
    say("cancelled");
}

const zwlr_data_control_source_v1_listener sourceListener{&send, &sourceCancelled};

zwlr_data_control_manager_v1* manager = nullptr;
wl_seat* seat = nullptr;

void global(void*, wl_registry* registry, uint32_t name, const char* interface, uint32_t) {
    if (std::strcmp(interface, "zwlr_data_control_manager_v1") == 0)
        manager = static_cast<zwlr_data_control_manager_v1*>(
            wl_registry_bind(registry, name, &zwlr_data_control_manager_v1_interface, 1));
    else if (std::strcmp(interface, "wl_seat") == 0 && !seat)
        seat = static_cast<wl_seat*>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
}

void globalRemoved(void*, wl_registry*, uint32_t) {
}

const wl_registry_listener registryListener{&global, &globalRemoved};

} // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--type" && i + 2 < argc) {
            types[argv[i + 1]].bytes = fromBase64(argv[i + 2]);
            order.push_back(argv[i + 1]);
            i += 2;
        } else if (option == "--large" && i + 2 < argc) {
            std::string bytes(static_cast<std::size_t>(std::atoll(argv[i + 2])), '\0');
            for (std::size_t at = 0; at < bytes.size(); ++at)
                bytes[at] = static_cast<char>(at * 7 % 251);
            types[argv[i + 1]].bytes = std::move(bytes);
            order.push_back(argv[i + 1]);
            i += 2;
        } else if (option == "--stall" && i + 1 < argc) {
            types[argv[i + 1]].stall = true;
            order.push_back(argv[i + 1]);
            i += 1;
        } else {
            std::fprintf(stderr, "unknown argument %s\n", argv[i]);
            return 2;
        }
    }
    wl_display* display = wl_display_connect(nullptr);
    if (!display) {
        std::fprintf(stderr, "no Wayland compositor\n");
        return 1;
    }
    wl_registry* registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &registryListener, nullptr);
    wl_display_roundtrip(display);
    if (!manager || !seat) {
        std::fprintf(stderr, "the compositor has no data-control\n");
        return 1;
    }
    zwlr_data_control_device_v1* device = zwlr_data_control_manager_v1_get_data_device(manager, seat);
    zwlr_data_control_source_v1* source = zwlr_data_control_manager_v1_create_data_source(manager);
    zwlr_data_control_source_v1_add_listener(source, &sourceListener, nullptr);
    for (const std::string& type : order)
        zwlr_data_control_source_v1_offer(source, type.c_str());
    zwlr_data_control_device_v1_set_selection(device, source);
    wl_display_roundtrip(display);
    say("owner");

    // Until the test closes standard input or the selection goes to another client.
    while (!cancelled) {
        wl_display_flush(display);
        pollfd fds[2] = {{wl_display_get_fd(display), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) break;
        if (fds[1].revents) {
            char buffer[64];
            if (read(STDIN_FILENO, buffer, sizeof buffer) <= 0) break;
        }
        if ((fds[0].revents & POLLIN) && wl_display_dispatch(display) < 0) break;
        if (fds[0].revents & (POLLERR | POLLHUP)) break;
    }
    for (const int fd : stalled)
        close(fd);
    wl_display_disconnect(display);
    return 0;
}
