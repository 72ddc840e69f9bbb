// The Wayland clipboard on the standard data-control protocol (ext-data-control-v1), against the
// stand-in compositor (tests/support/StandInDataControlCompositor.cpp): no compositor of Debian 12
// offers that protocol. The other client of each test is a second DataControlClipboard on the
// same compositor.
#include "StandInDataControlCompositorProcess.h"
#include "WaitUntil.h"
#include "platform/wayland/DataControlClipboard.h"
#include "platform/wayland/WaylandConnection.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

using Entries = QList<ClipboardItem::Entry>;

const QString png = QStringLiteral("image/png");
const QString plainText = QStringLiteral("text/plain");
const QByteArray standard = "ext_data_control_manager_v1";
const QByteArray wlroots = "zwlr_data_control_manager_v1";
// The bytes of a one-pixel PNG picture.
const QByteArray pictureBytes = QByteArray::fromBase64(
    "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==");

// How long a call is given to return before the test calls it hung; far above every limit of
// the clipboard, which the busiest machine stays well within.
constexpr auto returnLimit = 60s;

// A clipboard call on a thread of its own, while the test acts on the compositor. A call that
// never returns ends the test process with a message rather than leaving it hanging.
class BackgroundCall {
public:
    explicit BackgroundCall(std::function<void()> work)
        : m_thread([this, work = std::move(work)] {
            work();
            m_returned = true;
        }) {}
    ~BackgroundCall() {
        if (!waitForReturn(returnLimit)) {
            std::fprintf(stderr, "A clipboard call never returned\n");
            std::abort();
        }
        m_thread.join();
    }
    BackgroundCall(const BackgroundCall&) = delete;
    BackgroundCall& operator=(const BackgroundCall&) = delete;

    bool waitForReturn(std::chrono::milliseconds limit) {
        return waitUntil([this] { return m_returned.load(); }, limit);
    }

private:
    std::atomic<bool> m_returned{false};
    std::thread m_thread;
};

// The snapshot once it satisfies `expected`, or the last one taken after 10 s: a client already
// connected learns of a new selection through events that may reach it after the call.
template <typename Expected>
ClipboardSnapshot snapshotOnceItShows(DataControlClipboard& clipboard, Expected expected) {
    ClipboardSnapshot snapshot;
    waitUntil([&] { return expected(snapshot = clipboard.snapshot()); }, 10s);
    return snapshot;
}

bool holdsSomething(const ClipboardSnapshot& snapshot) {
    return !snapshot.isEmpty() && !snapshot.first().isEmpty();
}

class ExtDataControlClipboardTest : public ::testing::Test {
protected:
    // Starts the compositor with `options`; the test checks it runs.
    void start(const QStringList& options = {}) {
        compositor.emplace(options);
        ASSERT_TRUE(compositor->isRunning()) << compositor->error().toStdString();
    }
    QByteArray socket() const { return compositor->waylandDisplay(); }

    std::optional<StandInDataControlCompositorProcess> compositor;
};

} // namespace

TEST_F(ExtDataControlClipboardTest, TheStandardProtocolIsChosenWhenTheCompositorOffersBoth) {
    ASSERT_NO_FATAL_FAILURE(start({QStringLiteral("--with-wlr")}));
    const auto interfaces = WaylandConnection::interfacesAt(socket());
    ASSERT_TRUE(interfaces.has_value());
    ASSERT_TRUE(interfaces->contains(standard));
    ASSERT_TRUE(interfaces->contains(wlroots));

    DataControlClipboard clipboard(socket());
    EXPECT_TRUE(clipboard.isAvailable());
    EXPECT_EQ(clipboard.protocol(), standard);
}

TEST_F(ExtDataControlClipboardTest,
       ACompositorWithoutDataControlLeavesTheClipboardUnavailableAndNothingWaits) {
    ASSERT_NO_FATAL_FAILURE(start({QStringLiteral("--without-ext")}));
    const auto interfaces = WaylandConnection::interfacesAt(socket());
    ASSERT_TRUE(interfaces.has_value()); // the compositor answers; it just has no clipboard to offer
    ASSERT_TRUE(interfaces->contains("wl_seat"));

    QElapsedTimer took;
    took.start();
    DataControlClipboard clipboard(socket());
    EXPECT_FALSE(clipboard.isAvailable());
    EXPECT_TRUE(clipboard.protocol().isEmpty());
    EXPECT_TRUE(clipboard.snapshot().isEmpty());
    clipboard.writeText(QStringLiteral("nowhere"));
    clipboard.restore({ClipboardItem{{plainText, "nowhere"}}});
    EXPECT_LT(took.elapsed(), 20000); // nothing waited for an answer that cannot come
}

TEST_F(ExtDataControlClipboardTest, ACompositorWithoutASeatLeavesTheClipboardUnavailable) {
    ASSERT_NO_FATAL_FAILURE(start({QStringLiteral("--without-seat")}));
    DataControlClipboard clipboard(socket());
    EXPECT_FALSE(clipboard.isAvailable());
    EXPECT_TRUE(clipboard.protocol().isEmpty());
    EXPECT_TRUE(clipboard.snapshot().isEmpty());
}

TEST_F(ExtDataControlClipboardTest, EveryTypeOfASelectionSetByAnotherClientIsSnapshottedInTheOfferedOrder) {
    ASSERT_NO_FATAL_FAILURE(start());
    DataControlClipboard owner(socket());
    ASSERT_EQ(owner.protocol(), standard);
    const Entries offered{{png, pictureBytes}, {plainText, "a red square"}};
    owner.restore({ClipboardItem{offered.at(0), offered.at(1)}});

    // The compositor holds the selection once restore returns, and a client that connects now is
    // shown it at once.
    DataControlClipboard reader(socket());
    ASSERT_EQ(reader.protocol(), standard);
    const ClipboardSnapshot snapshot = reader.snapshot();
    ASSERT_EQ(snapshot.size(), 1);
    EXPECT_EQ(snapshot.first().entries(), offered);
}

TEST_F(ExtDataControlClipboardTest, AClientAlreadyConnectedSeesEachNewSelection) {
    ASSERT_NO_FATAL_FAILURE(start());
    DataControlClipboard reader(socket());
    DataControlClipboard owner(socket());
    ASSERT_TRUE(reader.isAvailable());
    EXPECT_TRUE(reader.snapshot().isEmpty()); // a fresh compositor has no selection

    const Entries first{{QStringLiteral("text/html"), "<b>bold</b>"},
                        {QStringLiteral("application/x-custom"), QByteArray("\x00\x01\xff", 3)},
                        {plainText, "bold"}};
    owner.restore({ClipboardItem{first.at(0), first.at(1), first.at(2)}});
    ClipboardSnapshot snapshot = snapshotOnceItShows(reader, holdsSomething);
    ASSERT_EQ(snapshot.size(), 1);
    EXPECT_EQ(snapshot.first().entries(), first);

    const Entries second{{plainText, "second"}};
    owner.restore({ClipboardItem{second.at(0)}});
    snapshot = snapshotOnceItShows(reader, [&](const ClipboardSnapshot& seen) {
        return holdsSomething(seen) && seen.first().entries() != first;
    });
    ASSERT_EQ(snapshot.size(), 1);
    EXPECT_EQ(snapshot.first().entries(), second);
}

TEST_F(ExtDataControlClipboardTest, WrittenTextIsOfferedAsEveryTextTypeAndReadBackAsUtf8) {
    ASSERT_NO_FATAL_FAILURE(start());
    DataControlClipboard writer(socket());
    ASSERT_EQ(writer.protocol(), standard);
    const QString text = QStringLiteral("Grüße, 世界 — ✓");
    writer.writeText(text);

    DataControlClipboard reader(socket());
    const ClipboardSnapshot snapshot = reader.snapshot();
    ASSERT_EQ(snapshot.size(), 1);
    QList<QString> types;
    for (const auto& [type, bytes] : snapshot.first().entries())
        types.append(type);
    QList<QString> expectedTypes;
    for (const QByteArray& type : DataControlClipboard::textTypes())
        expectedTypes.append(QString::fromUtf8(type));
    EXPECT_EQ(types, expectedTypes);
    ASSERT_TRUE(expectedTypes.contains(QStringLiteral("x-kde-passwordManagerHint")));
    for (const QString& type : expectedTypes) {
        if (type == QStringLiteral("x-kde-passwordManagerHint"))
            EXPECT_EQ(snapshot.first().data(type), QByteArray("secret"));
        else
            EXPECT_EQ(QString::fromUtf8(snapshot.first().data(type).value_or("(missing)")), text)
                << type.toStdString();
    }
}

TEST_F(ExtDataControlClipboardTest, ARestoredSnapshotPutsItsFirstItemsTypesAndBytesBack) {
    ASSERT_NO_FATAL_FAILURE(start());
    DataControlClipboard writer(socket());
    ASSERT_EQ(writer.protocol(), standard);
    writer.writeText(QStringLiteral("for a moment"));
    const Entries kept{{QStringLiteral("text/html"), "<i>kept</i>"},
                       {QStringLiteral("application/octet-stream"), QByteArray("\x00\x7f\x80\xff", 4)}};
    // A selection holds one item: the second is not offered.
    writer.restore({ClipboardItem{kept.at(0), kept.at(1)}, ClipboardItem{{plainText, "second item"}}});

    DataControlClipboard reader(socket());
    const ClipboardSnapshot snapshot = reader.snapshot();
    ASSERT_EQ(snapshot.size(), 1);
    EXPECT_EQ(snapshot.first().entries(), kept);
}

TEST_F(ExtDataControlClipboardTest, AnEmptySnapshotRestoredLeavesTheClipboardEmpty) {
    ASSERT_NO_FATAL_FAILURE(start());
    DataControlClipboard writer(socket());
    DataControlClipboard reader(socket());
    ASSERT_EQ(writer.protocol(), standard);
    writer.writeText(QStringLiteral("for a moment"));
    ASSERT_TRUE(holdsSomething(snapshotOnceItShows(reader, holdsSomething)));

    writer.restore({});
    EXPECT_TRUE(
        snapshotOnceItShows(reader, [](const ClipboardSnapshot& seen) { return seen.isEmpty(); }).isEmpty());
    DataControlClipboard latecomer(socket());
    EXPECT_TRUE(latecomer.isAvailable());
    EXPECT_TRUE(latecomer.snapshot().isEmpty());
    // The text's source, cancelled by the compositor, was given up by its client.
    EXPECT_TRUE(compositor->waitForLine("source destroyed by its client", 10s))
        << compositor->output().data();
}

TEST_F(ExtDataControlClipboardTest, AnOwnerWhoseSelectionIsTakenGivesItsSourceUpAndSeesTheNewOne) {
    ASSERT_NO_FATAL_FAILURE(start());
    DataControlClipboard first(socket());
    DataControlClipboard second(socket());
    first.writeText(QStringLiteral("first"));
    second.restore({ClipboardItem{{plainText, "second"}}});
    ASSERT_TRUE(compositor->waitForLine("cancelled source", 10s));
    EXPECT_TRUE(compositor->waitForLine("source destroyed by its client", 10s))
        << compositor->output().data();

    const ClipboardSnapshot seen = snapshotOnceItShows(first, [](const ClipboardSnapshot& seen) {
        return holdsSomething(seen) && seen.first().entries().size() == 1;
    });
    ASSERT_EQ(seen.size(), 1);
    EXPECT_EQ(seen.first().entries(), Entries({{plainText, "second"}}));
}

TEST_F(ExtDataControlClipboardTest, AnOwnerThatGoesAwayLeavesTheClipboardEmpty) {
    ASSERT_NO_FATAL_FAILURE(start());
    DataControlClipboard reader(socket());
    std::optional<DataControlClipboard> owner(std::in_place, socket());
    ASSERT_EQ(owner->protocol(), standard);
    owner->restore({ClipboardItem{{plainText, "gone soon"}}});
    ASSERT_TRUE(holdsSomething(snapshotOnceItShows(reader, holdsSomething)));

    owner.reset();
    EXPECT_TRUE(
        snapshotOnceItShows(reader, [](const ClipboardSnapshot& seen) { return seen.isEmpty(); }).isEmpty());
}

TEST_F(ExtDataControlClipboardTest, ATypeWhoseOwnerNeverWritesIsLeftOutWithinTheLimit) {
    ASSERT_NO_FATAL_FAILURE(start({QStringLiteral("--withhold"), png}));
    DataControlClipboard owner(socket());
    ASSERT_EQ(owner.protocol(), standard);
    owner.restore({ClipboardItem{{png, pictureBytes}, {plainText, "kept"}}});

    DataControlClipboard reader(socket());
    QElapsedTimer took;
    took.start();
    const ClipboardSnapshot snapshot = reader.snapshot();
    EXPECT_LT(took.elapsed(), DataControlClipboard::snapshotLimit.count() + 10000); // bounded, however busy
    // The picture was asked for, and never came.
    EXPECT_TRUE(compositor->waitForLine("withholding image/png", 10s)) << compositor->output().data();
    ASSERT_EQ(snapshot.size(), 1);
    EXPECT_EQ(snapshot.first().entries(), Entries({{plainText, "kept"}}));
}

TEST_F(ExtDataControlClipboardTest, ACompositorThatStopsAnsweringDoesNotHoldUpAWrite) {
    ASSERT_NO_FATAL_FAILURE(start({QStringLiteral("--freeze-on-selection")}));
    DataControlClipboard clipboard(socket());
    ASSERT_EQ(clipboard.protocol(), standard);
    BackgroundCall write([&] { clipboard.writeText(QStringLiteral("unanswered")); });
    EXPECT_TRUE(compositor->waitForLine("frozen", 20s));
    EXPECT_TRUE(write.waitForReturn(returnLimit));
    BackgroundCall restore([&] { clipboard.restore({ClipboardItem{{plainText, "unanswered too"}}}); });
    EXPECT_TRUE(restore.waitForReturn(returnLimit));
}

TEST_F(ExtDataControlClipboardTest, ACompositorKilledDuringAWriteLeavesTheClipboardUnavailable) {
    ASSERT_NO_FATAL_FAILURE(start({QStringLiteral("--freeze-on-selection")}));
    DataControlClipboard clipboard(socket());
    ASSERT_EQ(clipboard.protocol(), standard);
    {
        // The write waits for the compositor to confirm the selection; the compositor dies instead.
        BackgroundCall write([&] { clipboard.writeText(QStringLiteral("lost")); });
        ASSERT_TRUE(compositor->waitForLine("frozen", 20s));
        compositor->kill();
        EXPECT_TRUE(write.waitForReturn(returnLimit));
    }
    EXPECT_TRUE(waitUntil([&] { return !clipboard.isAvailable(); }, 10s));
    EXPECT_TRUE(clipboard.protocol().isEmpty());
    BackgroundCall after([&] {
        EXPECT_TRUE(clipboard.snapshot().isEmpty());
        clipboard.writeText(QStringLiteral("nowhere"));
        clipboard.restore({ClipboardItem{{plainText, "nowhere"}}});
    });
    EXPECT_TRUE(after.waitForReturn(returnLimit));
}

TEST_F(ExtDataControlClipboardTest, ACompositorKilledDuringASnapshotEndsItAndLeavesTheClipboardUnavailable) {
    ASSERT_NO_FATAL_FAILURE(start({QStringLiteral("--withhold"), png}));
    DataControlClipboard owner(socket());
    ASSERT_EQ(owner.protocol(), standard);
    owner.restore({ClipboardItem{{plainText, "text"}, {png, pictureBytes}}});
    DataControlClipboard reader(socket());
    ASSERT_EQ(reader.protocol(), standard);
    {
        // The snapshot waits for the picture, which never comes; the compositor dies meanwhile.
        BackgroundCall snapshot([&] { reader.snapshot(); });
        ASSERT_TRUE(compositor->waitForLine("withholding image/png", 20s));
        compositor->kill();
        EXPECT_TRUE(snapshot.waitForReturn(returnLimit));
    }
    EXPECT_TRUE(waitUntil([&] { return !reader.isAvailable() && !owner.isAvailable(); }, 10s));
    BackgroundCall after([&] {
        EXPECT_TRUE(reader.snapshot().isEmpty());
        reader.writeText(QStringLiteral("nowhere"));
        owner.restore({});
    });
    EXPECT_TRUE(after.waitForReturn(returnLimit));
}
