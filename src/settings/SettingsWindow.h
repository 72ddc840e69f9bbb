#pragma once

#include "settings/SettingsPage.h"

#include <QList>
#include <QWidget>

class QListWidget;
class QStackedWidget;

namespace murmurly {

// "Murmurly Settings": a sidebar of tabs beside the selected tab's page. The pages come from the
// caller, in sidebar order. The window opens at the size its content asks for; the user can make
// it smaller down to its minimum, where pages scroll, or as large as the screen allows, where
// lists show more rows.
class SettingsWindow : public QWidget {
    Q_OBJECT

public:
    explicit SettingsWindow(const QList<SettingsPage>& pages, QWidget* parent = nullptr);

    int pageCount() const;
    int currentIndex() const;
    void setCurrentIndex(int index);
    // The page of a sidebar title; nothing when no page has it.
    QWidget* page(const QString& title) const;
    bool selectPage(const QString& title);

    QListWidget* sidebar() const { return m_sidebar; }

    // Shows the window (restoring it when minimised), brings it to the front and gives it the
    // keyboard focus.
    void showAndRaise();

    QSize sizeHint() const override;

signals:
    // The window stopped being the active one: the user went to another window.
    void deactivated();

protected:
    void changeEvent(QEvent* event) override;

private:
    QListWidget* m_sidebar;
    QStackedWidget* m_stack;
    QList<QWidget*> m_pages;
};

} // namespace murmurly
