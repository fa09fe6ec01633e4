#pragma once

#include <QIcon>

class QObject;
class QString;

/// Makes the icons known to the resource system, and has Qt use the larger pictures on screens with a scale. Call it
/// once in `main`, before the first form is set up; the library is static and nothing else would pull them in.
void OrvInitResources();

/// The icon of a resource path (":/OrvPlayer/play.png") with all its baked sizes, so that it is sharp in tool bars of
/// any size and on screens of any scale. Null for a path without an icon. GUI thread.
QIcon OrvIcon(const QString &resourcePath);

/// Gives everything below `root` that names an icon in its property "iconPath" that icon
/// with all its sizes. A form can only name a file of one size; it repeats the path in that property.
/// Works on what has a property "icon": actions, buttons. GUI thread.
void ApplyIcons(QObject *root);
