#pragma once

#include "settings/FileDialogs.h"

namespace murmurly {

// The desktop's own file dialogs.
class QtFileDialogs final : public FileDialogs {
public:
    std::optional<QString> openPath(QWidget* parent, const QString& title, const QString& filter) override;
    std::optional<QString> savePath(QWidget* parent, const QString& title, const QString& suggestedName,
                                    const QString& filter) override;
};

} // namespace murmurly
