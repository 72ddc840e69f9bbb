#pragma once

#include <QString>

#include <optional>

class QWidget;

namespace murmurly {

// The modal questions a settings tab asks the user: a file to open, a place to save. The program
// answers them with the desktop's dialogs; tests answer them directly, so no dialog ever waits for
// a person.
class FileDialogs {
public:
    virtual ~FileDialogs() = default;

    // A path chosen for opening, or none when the user cancels. `filter` is a Qt name filter such
    // as "JSON files (*.json)".
    virtual std::optional<QString> openPath(QWidget* parent, const QString& title, const QString& filter) = 0;
    // A path chosen for saving, starting from `suggestedName`, or none when the user cancels.
    virtual std::optional<QString> savePath(QWidget* parent, const QString& title,
                                            const QString& suggestedName, const QString& filter) = 0;
};

} // namespace murmurly
