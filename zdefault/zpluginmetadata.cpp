// SPDX-License-Identifier: Apache-2.0
#include "zpluginmetadata.h"

#include <QJsonArray>
#include <QJsonObject>

QString zInterfaceMismatch(const QJsonObject &metaData)
{
    const QString ours = QStringLiteral(ZDEFAULT_INTERFACES);
    const QJsonValue versions = metaData.value(QStringLiteral("zdefault-interfaces"));
    const QString theirs = versions.toArray().first().toString(ours);
    return theirs == ours ? QString()
                          : QStringLiteral("it was built for version %1 of the interfaces, and this is version %2")
                                .arg(theirs, ours);
}
