#include "hotkey/KeyNames.h"

#include "hotkey/KeyCodes.h"

#include <QtGlobal>

namespace murmurly::KeyNames {

KeyNaming platform() {
#ifdef Q_OS_MACOS
    return KeyNaming::macOS;
#else
    return KeyNaming::linuxDesktop;
#endif
}

QString modifierName(std::int64_t keyCode, KeyNaming naming) {
    const bool mac = naming == KeyNaming::macOS;
    switch (keyCode) {
    case KeyCodes::rightCommand:
        return mac ? QStringLiteral("Right Command") : QStringLiteral("Right Super");
    case KeyCodes::leftCommand:
        return mac ? QStringLiteral("Left Command") : QStringLiteral("Left Super");
    case KeyCodes::leftOption:
        return mac ? QStringLiteral("Left Option") : QStringLiteral("Left Alt");
    case KeyCodes::rightOption:
        return mac ? QStringLiteral("Right Option") : QStringLiteral("Right Alt");
    case KeyCodes::leftShift:
        return QStringLiteral("Left Shift");
    case KeyCodes::rightShift:
        return QStringLiteral("Right Shift");
    case KeyCodes::leftControl:
        return QStringLiteral("Left Control");
    case KeyCodes::rightControl:
        return QStringLiteral("Right Control");
    case KeyCodes::function:
        return QStringLiteral("Fn");
    default:
        return {};
    }
}

} // namespace murmurly::KeyNames
