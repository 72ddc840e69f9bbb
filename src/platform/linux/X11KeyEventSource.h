#pragma once

#include "hotkey/KeyEventSource.h"
#include "platform/linux/X11Keymap.h"

#include <QByteArray>

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

class QThread;
struct _XDisplay;
union _XEvent;

namespace murmurly {

class X11OwnKeyEvents;

// System-wide key events from an X server: XInput2 raw key events, which reach every listener
// whatever window has the focus, read on a thread of their own ("Murmurly.HotkeyMonitor") that
// owns its own connection. Keys that must not reach the focused application are grabbed on the
// root window; the grabs are changed by the reader thread whenever the wanted keys change.
//
// A grabbed key's press takes the whole keyboard for as long as it is held, so the grabs are
// synchronous: the server hands over one event at a time, and each one the sink did not swallow
// (another key typed while the trigger is held, Esc's release) is given back to the focused
// window as if there had been no grab. While a swallowed key stays down the keyboard is taken
// again after each such event, so that key's release is still withheld. Esc, whose release passes,
// is let go of right after its press.
class X11KeyEventSource final : public KeyEventSource {
public:
    // An empty display name means the DISPLAY of the environment. Events announced in
    // `ownEvents` (the program's own paste chord) are not delivered to the sink.
    explicit X11KeyEventSource(QByteArray displayName = {}, X11OwnKeyEvents* ownEvents = nullptr);
    ~X11KeyEventSource() override;

    // False when the display cannot be opened or lacks XInput2 2.0 or XTest.
    bool start(KeyEventSink& sink) override;
    void stop() override;
    bool isRunning() const override;
    void setSwallowedKeys(const SwallowedKeys& keys) override;

    // The thread that reads the events, while it runs.
    QThread* readerThread() const { return m_thread.get(); }
    // How many X keys are grabbed right now (the wanted keys take effect on the reader thread).
    int grabbedKeyCount() const { return m_grabbedCount.load(); }

private:
    void run();
    void handle(_XEvent& event);
    void keyChanged(unsigned int xKeyCode, bool pressed);
    // Answers the server for a key event it handed over under a grab: kept, or given back.
    void answerGrabbedEvent(unsigned int xKeyCode);
    // Whether a key whose press was swallowed and whose release must be too is down.
    bool aWithheldKeyIsDown() const;
    bool isOwnEvent(const void* rawEvent);
    void findXTestKeyboard();
    void updateGrabs();
    void loadKeymap();
    std::uint64_t heldModifierFlags() const;
    void wake();
    static void connectionLost(_XDisplay* display, void* source);

    QByteArray m_displayName;
    X11OwnKeyEvents* m_ownEvents = nullptr;
    KeyEventSink* m_sink = nullptr;
    std::unique_ptr<QThread> m_thread;
    int m_wakeFd = -1;
    std::atomic<bool> m_stopping{false};
    std::atomic<bool> m_connected{false};
    std::atomic<int> m_grabbedCount{0};

    // Written on the main thread, applied by the reader.
    std::mutex m_wantedMutex;
    SwallowedKeys m_wanted;

    // The reader's own: handed over by start() before the thread begins.
    _XDisplay* m_display = nullptr;
    unsigned long m_root = 0; // the root window
    int m_xinputOpcode = 0;
    X11Keymap m_keymap;
    std::array<bool, 256> m_down{};
    std::array<bool, 256> m_swallowed{};       // the sink's answer for the key's latest event
    std::array<bool, 256> m_boundKey{};        // X keys of the bound key: their release is withheld too
    int m_xtestKeyboard = -1;                  // the device XTest's key events come from
    std::vector<unsigned char> m_modifierKeys; // X keys that set a modifier flag
    std::vector<unsigned char> m_grabbed;
};

} // namespace murmurly
