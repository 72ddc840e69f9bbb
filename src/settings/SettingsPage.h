#pragma once

#include <QIcon>
#include <QString>

class QWidget;

namespace murmurly {

// One entry of the settings window: the sidebar's title and icon, and the page it shows.
struct SettingsPage {
    QString title;
    QIcon icon;
    QWidget* widget = nullptr; // the window takes ownership
};

} // namespace murmurly
