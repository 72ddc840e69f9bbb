#pragma once

#include "settings/FileDialogs.h"

#include <QStringList>

namespace murmurly::testing {

// Dialogs answered by the test: each question returns the prepared answer at once and is noted,
// so a test can check what the user would have been asked and shown.
class ScriptedFileDialogs final : public FileDialogs {
public:
    std::optional<QString> openAnswer;
    std::optional<QString> saveAnswer;
    bool confirmAnswer = false;

    QStringList openTitles;
    QStringList saveSuggestions;
    QStringList messages;
    QStringList confirmations;

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
    void showMessage(QWidget*, const QString&, const QString& text) override { messages << text; }
    bool confirm(QWidget*, const QString& question, const QString&, const QString&) override {
        confirmations << question;
        return confirmAnswer;
    }

    QString lastFilter;
};

} // namespace murmurly::testing
