// SPDX-License-Identifier: Apache-2.0
#include <zlibrary.h>
#include <zloader.h>
#include <zobject.h>

#include <QCoreApplication>

/// Asks for itself by name while it is injected, and leaves word of the answer with the application.
class Selfish : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLoader *zLoader READ getSetZLoader WRITE getSetZLoader)

public:
    ZLoader *getSetZLoader(ZLoader *loader = nullptr)
    {
        if (loader)
            QCoreApplication::instance()->setProperty("selfish", !loader->load0(QStringLiteral("selfish")).isNull());
        return loader;
    }
};

#include "selfish.moc"
