#include "resources/Icons.h"

#include "resources/IconSizes.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QObject>
#include <QVariant>

// Q_INIT_RESOURCE does not work inside a namespace.
void OrvInitResources()
{
    Q_INIT_RESOURCE(OrvPlayerIcons);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
}

QIcon OrvIcon(const QString &resourcePath)
{
    const QString folder = QLatin1String(orv::kIconFolder);
    const QString name = QFileInfo(resourcePath).completeBaseName();
    QIcon icon;
    for (int sizePx : orv::kIconSizesPx) {
        const QString file = QStringLiteral("%1/%2.png").arg(sizePx).arg(name);
        if (!QFile::exists(folder + file))
            continue;
        icon.addFile(folder + file, QSize(sizePx, sizePx));
        icon.addFile(folder + orv::kActiveIcons + file, QSize(sizePx, sizePx), QIcon::Active);
    }
    return icon;
}

void ApplyIcons(QObject *root)
{
    for (QObject *object : root->findChildren<QObject *>()) {
        const QString path = object->property("iconPath").toString();
        if (!path.isEmpty())
            object->setProperty("icon", OrvIcon(path));
    }
}
