#pragma once

#include <QString>

namespace murmurly {

// Whether the speech model of the chosen language is usable.
struct ModelStatus {
    enum class Kind { checking, downloading, ready, failed };

    Kind kind = Kind::checking;
    QString message; // only meaningful for `failed`: the error's description

    static ModelStatus checking() { return {Kind::checking, {}}; }
    static ModelStatus downloading() { return {Kind::downloading, {}}; }
    static ModelStatus ready() { return {Kind::ready, {}}; }
    static ModelStatus failed(const QString& message) { return {Kind::failed, message}; }

    bool isReady() const { return kind == Kind::ready; }

    // The model line of the menu.
    QString menuLabel() const;

    friend bool operator==(const ModelStatus& a, const ModelStatus& b) {
        return a.kind == b.kind && (a.kind != Kind::failed || a.message == b.message);
    }
};

} // namespace murmurly
