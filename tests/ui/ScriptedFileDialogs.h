#pragma once

#include "settings/FileDialogs.h"

#include <QStringList>

namespace murmurly::testing {

// Dialogs answered by the test: each question returns the prepared answer at once and is noted,
// so a test can check what the user would have been asked.
class ScriptedFileDialogs final : public FileDialogs {
public:
    std::optional<QString> openAnswer;
    std::optional<QString> saveAnswer;

    QStringList openTitles;
    QStringList saveSuggestions;

    std::optional<QString> openPath(QWidget*, const QString& title, const QString& filter) override {
        openTitles << title;
        lastFilter = filter;
        return openAnswer;
    }
    std::optional<QString> savePath(QWidget*, const QString&, const QString& suggestedName,
                                    const QString& filter) override {
        saveSuggestions << suggestedName;
        lastFilter = filter;
        return saveAnswer;
    }

    QString lastFilter;
};

} // namespace murmurly::testing
