#pragma once

#include "settings/FileDialogs.h"

namespace murmurly {

// The desktop's own dialogs: QFileDialog for paths, QMessageBox for messages and confirmations.
class QtFileDialogs final : public FileDialogs {
public:
    std::optional<QString> openPath(QWidget* parent, const QString& title, const QString& filter) override;
    std::optional<QString> savePath(QWidget* parent, const QString& title, const QString& suggestedName,
                                    const QString& filter) override;
    void showMessage(QWidget* parent, const QString& title, const QString& text) override;
    bool confirm(QWidget* parent, const QString& question, const QString& detail,
                 const QString& actionText) override;
};

} // namespace murmurly
