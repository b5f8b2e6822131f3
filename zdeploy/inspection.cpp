// SPDX-License-Identifier: Apache-2.0
#include "inspection.h"

#include "pluginname.h"

#include <QFileInfo>
#include <QJsonObject>
#include <QPluginLoader>

#include <zobject.h>
#include <zpluginmetadata.h>

namespace {

/// Qt's words for a library that is none of its plugins do not say what is missing.
QString adviseOn(const QString &error)
{
    return error.contains(QLatin1String("meta data"))
               ? error + QStringLiteral(": its class needs Q_OBJECT and Q_PLUGIN_METADATA(IID ZObject_iid)")
               : error;
}

} // namespace

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
        return QStringLiteral("it is no plugin: %1").arg(adviseOn(loader.errorString()));
    const QString iid = metaData.value(QStringLiteral("IID")).toString();
    if (iid != QLatin1String(ZObject_iid))
        return QStringLiteral("it is a plugin of another kind: its identifier is \"%1\", not \"%2\": write "
                              "Q_PLUGIN_METADATA(IID ZObject_iid)")
            .arg(iid, QLatin1String(ZObject_iid));
    return zInterfaceMismatch(metaData);
}

QString inspectNamed(const QString &file)
{
    const PluginName name = PluginName::parse(QFileInfo(file).fileName());
    if (name.plugin.isNull())
        return QStringLiteral("a plugin's file is called lib<name>.so or lib<name>.<version>.so");
    if (name.version == QLatin1String("so") || name.version.endsWith(QLatin1String(".so"))) // and no version
        return QStringLiteral("its name ends in \".so\" twice");
    return inspect(file);
}
