#pragma once

#include "core/Permissions.h"

#include <QStringList>

namespace murmurly::testing {

// Permissions the test grants and withdraws; notes every prompt and request.
class FakePermissions final : public Permissions {
public:
    bool keyboardAccess() override {
        ++keyboardReads;
        return keyboard;
    }
    bool requestKeyboardAccess() override {
        ++keyboardPrompts;
        return keyboard;
    }
    bool microphoneAuthorized() override {
        ++microphoneReads;
        return microphone;
    }
    QCoro::Task<bool> requestMicrophoneAccess() override {
        ++microphoneRequests;
        if (grantMicrophoneOnRequest) microphone = true;
        co_return microphone;
    }
    void openSystemSettings(const QString& pane) override { openedPanes.append(pane); }

    bool keyboard = true;
    bool microphone = true;
    bool grantMicrophoneOnRequest = false;
    int keyboardReads = 0;
    int keyboardPrompts = 0;
    int microphoneReads = 0;
    int microphoneRequests = 0;
    QStringList openedPanes;
};

} // namespace murmurly::testing
