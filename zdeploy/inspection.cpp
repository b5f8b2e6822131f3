// SPDX-License-Identifier: Apache-2.0
#include "inspection.h"

#include <QFileInfo>
#include <QJsonObject>
#include <QPluginLoader>

#include <zobject.h>
#include <zpluginmetadata.h>

QString inspect(const QString &file)
{
    const QFileInfo info(file);
    if (!info.exists())
        return QStringLiteral("there is no such file");
    if (!info.isFile())
        return QStringLiteral("it is no file");
    if (!info.isReadable())
        return QStringLiteral("it cannot be read");
    const QPluginLoader loader(info.absoluteFilePath());
    const QJsonObject metaData = loader.metaData();
    if (metaData.isEmpty())
        return QStringLiteral("it is no plugin: %1").arg(loader.errorString());
    const QString iid = metaData.value(QStringLiteral("IID")).toString();
    if (iid != QLatin1String(ZObject_iid))
        return QStringLiteral("it is a plugin of another kind: its identifier is \"%1\", not \"%2\"")
            .arg(iid, QLatin1String(ZObject_iid));
    return zInterfaceMismatch(metaData);
}
