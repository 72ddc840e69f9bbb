#include "ControllerHarness.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace murmurly::testing {

namespace {

// Folder of the harness's history file. The history is saved (and synced to disk) after every
// dictation, and the randomized tests run thousands; a memory-backed folder keeps that cheap.
QString temporaryFolderTemplate() {
    const QFileInfo shm(QStringLiteral("/dev/shm"));
    if (shm.isDir() && shm.isWritable()) return QStringLiteral("/dev/shm/murmurly-test-XXXXXX");
    return QDir::tempPath() + QStringLiteral("/murmurly-test-XXXXXX");
}

} // namespace

ControllerHarness::ControllerHarness()
    : m_dir(temporaryFolderTemplate())
    , m_microphone(std::make_unique<FakeCaptureDevice>()) {
    microphone = m_microphone.get();
    // Nothing in these tests has a model server; the on-device provider answers from the fake.
    localModel.state = LocalLanguageModel::Availability::available;
}

ControllerHarness::~ControllerHarness() {
    destroyController();
}

AppController& ControllerHarness::controller() {
    if (!m_controller) {
        // A controller built again after destroyController() gets a microphone of its own.
        if (!m_microphone) {
            m_microphone = std::make_unique<FakeCaptureDevice>();
            microphone = m_microphone.get();
        }
        AppServices services{defaults,
                             clock,
                             keySource ? *keySource : keyEvents,
                             keyState,
                             activeApplication,
                             clipboard,
                             pasteKeys,
                             speech,
                             std::move(m_microphone),
                             secrets,
                             localModel,
                             m_network,
                             loginItem,
                             permissions,
                             historyFilePath()};
        m_controller = std::make_unique<AppController>(std::move(services));
        settle();
    }
    return *m_controller;
}

void ControllerHarness::destroyController() {
    if (!m_controller) return;
    m_controller.reset();
    microphone = nullptr;
    // Sleeping tasks find the controller gone when they wake and end.
    clock.advance(std::chrono::hours(1));
    settle();
}

void ControllerHarness::settle() {
    for (int i = 0; i < 20; ++i)
        QCoreApplication::processEvents();
}

void ControllerHarness::advance(std::chrono::milliseconds by) {
    // In small steps, with the event loop run between them: results and other queued work let
    // the tasks reach their next sleep before time moves past it.
    constexpr std::chrono::milliseconds step{50};
    const Clock::TimePoint end = clock.now() + by;
    while (clock.now() < end) {
        clock.advanceTo(std::min(end, clock.now() + step));
        settle();
    }
}

FakeRecognizerSession* ControllerHarness::session() const {
    // Sessions live one at a time, so the newest one is the one alive, also while a cancel that
    // took its engine away is still waiting for the start.
    if (*speech.liveSessions == 0) return nullptr;
    return speech.lastSession;
}

QString ControllerHarness::historyFilePath() const {
    return m_dir.path() + QStringLiteral("/history.json");
}

} // namespace murmurly::testing
