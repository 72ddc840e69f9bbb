#pragma once

#include "core/Permissions.h"

#include <chrono>
#include <functional>
#include <memory>

namespace murmurly {

class PulseSourceMonitor;

// What Murmurly may do on a Linux desktop. X11 has no permission prompt: keyboard access means the
// X server of DISPLAY answers and offers XInput2 (2.0 or later, to watch keys) and XTest (to post
// the paste chord). The microphone counts as authorized when an audio server (PulseAudio or
// PipeWire's PulseAudio service) answers and has a source. Used on the main thread; must outlive
// the tasks requestMicrophoneAccess() returns.
class LinuxPermissions final : public Permissions {
public:
    // The longest a keyboard check waits for the X server before answering "no".
    static constexpr std::chrono::milliseconds keyboardCheckLimit{500};
    // The longest requestMicrophoneAccess() waits for the audio server.
    static constexpr std::chrono::milliseconds microphoneRequestLimit{2000};

    LinuxPermissions();
    ~LinuxPermissions() override;
    LinuxPermissions(const LinuxPermissions&) = delete;
    LinuxPermissions& operator=(const LinuxPermissions&) = delete;

    // On a Wayland session the compositor, not the X server, decides whether keys can be read and
    // the paste chord posted: `check` answers instead of the X server from then on.
    void setKeyboardCheck(std::function<bool()> check) { m_keyboardOverride = std::move(check); }
    // Where the desktop can be asked again for the trigger (its shortcuts portal), `ask` does so
    // when the user requests keyboard access; the check answers afterwards.
    void setKeyboardRequest(std::function<void()> ask) { m_keyboardRequest = std::move(ask); }

    bool keyboardAccess() override;
    bool requestKeyboardAccess() override;

    bool microphoneAuthorized() override;
    // How many microphone reads have waited for the audio server (only the first may).
    int microphoneAnswerWaits() const;
    QCoro::Task<bool> requestMicrophoneAccess() override;

    // Starts the desktop's sound or keyboard settings program, the first one found on PATH.
    void openSystemSettings(const QString& pane) override;

private:
    struct KeyboardCheck;

    std::shared_ptr<KeyboardCheck> m_keyboardCheck; // the last one started
    std::function<bool()> m_keyboardOverride;
    std::function<void()> m_keyboardRequest;
    std::unique_ptr<PulseSourceMonitor> m_microphone;
};

} // namespace murmurly
