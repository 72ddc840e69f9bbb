#include "settings/QtFileDialogs.h"

#include <QDir>
#include <QFileDialog>

namespace murmurly {

std::optional<QString> QtFileDialogs::openPath(QWidget* parent, const QString& title, const QString& filter) {
    QFileDialog dialog(parent, title, QDir::homePath(), filter);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setFileMode(QFileDialog::ExistingFile);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    return dialog.selectedFiles().constFirst();
}

std::optional<QString> QtFileDialogs::savePath(QWidget* parent, const QString& title,
                                               const QString& suggestedName, const QString& filter) {
    QFileDialog dialog(parent, title, QDir::homePath(), filter);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setDefaultSuffix(QStringLiteral("json"));
    dialog.selectFile(suggestedName);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    return dialog.selectedFiles().constFirst();
}

} // namespace murmurly
