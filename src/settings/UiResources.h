#pragma once

#include <QIcon>
#include <QImage>
#include <QString>

namespace murmurly::UiResources {

// The path of a drawing in the program's resources: ":/murmurly/icons/<name>.svg".
QString svgPath(const QString& name);

// A drawing at `pixels` square, optionally faded; a null image when the drawing is missing.
QImage render(const QString& name, int pixels, qreal opacity = 1.0);

// A drawing as an icon, rendered ahead at the sizes panels, menus and lists ask for, so that it
// never goes through a scaled bitmap.
QIcon icon(const QString& name, qreal opacity = 1.0);

} // namespace murmurly::UiResources
