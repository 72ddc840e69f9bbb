#pragma once

#include "FakeActiveApplication.h"
#include "FakeCaptureDevice.h"
#include "FakeClipboard.h"
#include "FakeKeyEventSource.h"
#include "FakeKeyState.h"
#include "FakeLocalLanguageModel.h"
#include "FakeLoginItem.h"
#include "FakePasteKeys.h"
#include "FakePermissions.h"
#include "FakeSpeechBackend.h"
#include "ManualClock.h"
#include "MemoryDefaults.h"
#include "MemorySecretStore.h"
#include "core/AppController.h"

#include <QNetworkAccessManager>
#include <QTemporaryDir>

#include <chrono>
#include <functional>
#include <memory>

namespace murmurly::testing {

// An AppController on fakes and virtual time, with every fake reachable. The fakes are set up
// before controller() is first called (which builds it and runs its start-up until the first
// wait); settle() runs the event loop without moving time.
class ControllerHarness {
public:
    ControllerHarness();
    ~ControllerHarness();
    ControllerHarness(const ControllerHarness&) = delete;
    ControllerHarness& operator=(const ControllerHarness&) = delete;

    AppController& controller();
    bool isBuilt() const { return m_controller != nullptr; }
    // Drops the controller and runs out its sleeping tasks.
    void destroyController();

    // Delivers queued work on the event loop without moving virtual time.
    void settle();
    // Moves virtual time forward in small steps, settling after each, so that work queued on the
    // event loop keeps pace with time.
    void advance(std::chrono::milliseconds by);

    // The recognizer session that exists right now, if any.
    FakeRecognizerSession* session() const;

    // The history file lives in a temporary folder of the harness.
    QString historyFilePath() const;

    ManualClock clock;
    MemoryDefaults defaults;
    FakeKeyEventSource keyEvents;
    // A real key source to build the controller on instead of keyEvents; set before controller().
    KeyEventSource* keySource = nullptr;
    FakeKeyState keyState;
    FakeActiveApplication activeApplication;
    FakeClipboard clipboard;
    FakePasteKeys pasteKeys;
    FakeSpeechBackend speech;
    FakeCaptureDevice* microphone = nullptr; // owned by the controller once built
    MemorySecretStore secrets;
    FakeLocalLanguageModel localModel;
    FakeLoginItem loginItem;
    FakePermissions permissions;

private:
    QTemporaryDir m_dir;
    QNetworkAccessManager m_network;
    std::unique_ptr<FakeCaptureDevice> m_microphone;
    std::unique_ptr<AppController> m_controller;
};

} // namespace murmurly::testing
