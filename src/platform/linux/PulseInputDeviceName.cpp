#include "platform/linux/PulseInputDeviceName.h"

#include <QDeadlineTimer>

#include <pulse/context.h>
#include <pulse/introspect.h>
#include <pulse/mainloop.h>

#include <memory>
#include <string>

namespace murmurly {

namespace {

struct Query {
    bool serverInfoDone = false;
    std::string defaultSource;
    bool sourceInfoDone = false;
    std::optional<QString> description;
};

void onServerInfo(pa_context*, const pa_server_info* info, void* data) {
    auto* query = static_cast<Query*>(data);
    if (info && info->default_source_name) query->defaultSource = info->default_source_name;
    query->serverInfoDone = true;
}

void onSourceInfo(pa_context*, const pa_source_info* info, int eol, void* data) {
    auto* query = static_cast<Query*>(data);
    if (eol != 0) {
        query->sourceInfoDone = true;
        return;
    }
    if (!info) return;
    const char* text = info->description && *info->description ? info->description : info->name;
    if (text) query->description = QString::fromUtf8(text);
}

struct LoopDeleter {
    void operator()(pa_mainloop* loop) const { pa_mainloop_free(loop); }
};
struct ContextDeleter {
    void operator()(pa_context* context) const {
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
};

} // namespace

PulseInputDeviceName::PulseInputDeviceName(std::chrono::milliseconds limit)
    : m_limit(limit) {
}

std::optional<QString> PulseInputDeviceName::currentInputName() {
    std::unique_ptr<pa_mainloop, LoopDeleter> loop(pa_mainloop_new());
    if (!loop) return std::nullopt;
    std::unique_ptr<pa_context, ContextDeleter> context(
        pa_context_new(pa_mainloop_get_api(loop.get()), "Murmurly settings"));
    if (!context) return std::nullopt;
    if (pa_context_connect(context.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) return std::nullopt;

    const QDeadlineTimer deadline(m_limit);
    // Runs the loop until `done` holds, the connection fails or the time is up.
    const auto runUntil = [&](auto done) {
        while (!done()) {
            const pa_context_state_t state = pa_context_get_state(context.get());
            if (state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED || deadline.hasExpired())
                return false;
            const qint64 remainingUs = std::max<qint64>(deadline.remainingTime(), 1) * 1000;
            if (pa_mainloop_prepare(loop.get(), static_cast<int>(std::min<qint64>(remainingUs, 100000))) <
                    0 ||
                pa_mainloop_poll(loop.get()) < 0 || pa_mainloop_dispatch(loop.get()) < 0)
                return false;
        }
        return true;
    };

    if (!runUntil([&] { return pa_context_get_state(context.get()) == PA_CONTEXT_READY; }))
        return std::nullopt;
    Query query;
    pa_operation* op = pa_context_get_server_info(context.get(), &onServerInfo, &query);
    if (!op) return std::nullopt;
    pa_operation_unref(op);
    if (!runUntil([&] { return query.serverInfoDone; }) || query.defaultSource.empty()) return std::nullopt;
    op =
        pa_context_get_source_info_by_name(context.get(), query.defaultSource.c_str(), &onSourceInfo, &query);
    if (!op) return std::nullopt;
    pa_operation_unref(op);
    if (!runUntil([&] { return query.sourceInfoDone; })) return std::nullopt;
    return query.description;
}

} // namespace murmurly
