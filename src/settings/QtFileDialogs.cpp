#include "settings/QtFileDialogs.h"

#include <QDir>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

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

void QtFileDialogs::showMessage(QWidget* parent, const QString& title, const QString& text) {
    QMessageBox box(QMessageBox::Warning, title, text, QMessageBox::Ok, parent);
    box.exec();
}

bool QtFileDialogs::confirm(QWidget* parent, const QString& question, const QString& detail,
                            const QString& actionText) {
    QMessageBox box(QMessageBox::Warning, question, question, QMessageBox::NoButton, parent);
    box.setInformativeText(detail);
    QPushButton* action = box.addButton(actionText, QMessageBox::DestructiveRole);
    QPushButton* cancel = box.addButton(QMessageBox::Cancel);
    // Enter must not destroy anything by accident.
    box.setDefaultButton(cancel);
    box.exec();
    return box.clickedButton() == action;
}

} // namespace murmurly
