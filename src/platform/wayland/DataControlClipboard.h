#pragma once

#include "output/Clipboard.h"

#include <QByteArray>

#include <chrono>
#include <cstddef>
#include <memory>

namespace murmurly {

// The Wayland clipboard through the compositor's data-control protocol (the standard
// ext-data-control-v1 where the compositor has it, else wlroots' zwlr-data-control-unstable-v1),
// on a connection and a thread of its own: the clipboard can be read and set without a focused
// window, and what this program offers is handed out by that thread while the main thread waits
// or sleeps. A Wayland selection holds a single item. Every wait is bounded; a compositor that
// goes away leaves an empty snapshot and writes that do nothing.
class DataControlClipboard final : public Clipboard {
public:
    // A snapshot gives up on the owner of the clipboard once it has handed over nothing for this
    // long (an owner that never writes), and in any case after snapshotLimit; a type not complete
    // by then is left out. A large type that keeps coming is read to its end.
    static constexpr std::chrono::milliseconds snapshotIdleLimit{2000};
    static constexpr std::chrono::milliseconds snapshotLimit{20000};
    // The largest type a snapshot keeps; a bigger one is left out.
    static constexpr std::size_t largestType = 64u << 20;
    // How long an application that asked for this program's clipboard may go without reading
    // before it is cut off.
    static constexpr std::chrono::milliseconds sendLimit{5000};

    // The types the dictated text is offered as (the last one tells clipboard managers to
    // forget it).
    static const QList<QByteArray>& textTypes();

    // `socket` as for WaylandConnection: empty means WAYLAND_DISPLAY.
    explicit DataControlClipboard(const QByteArray& socket = {});
    ~DataControlClipboard() override;
    DataControlClipboard(const DataControlClipboard&) = delete;
    DataControlClipboard& operator=(const DataControlClipboard&) = delete;

    // Whether the compositor answered and offers data-control on a seat.
    bool isAvailable() const;
    // The protocol in use ("ext_data_control_manager_v1" or "zwlr_data_control_manager_v1"),
    // empty when none.
    QByteArray protocol() const;

    ClipboardSnapshot snapshot() override;
    void writeText(const QString& text) override;
    // Offers the first item of the snapshot again (a selection has one item).
    void restore(const ClipboardSnapshot& snapshot) override;

private:
    struct Link;
    std::unique_ptr<Link> m_link;
};

} // namespace murmurly
