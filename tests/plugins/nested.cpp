// SPDX-License-Identifier: Apache-2.0
#include <zlibrary.h>
#include <zloader.h>
#include <zobject.h>

/// Loads another plugin while it is injected itself, and holds that one.
class Nested : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLoader *zLoader READ getSetZLoader WRITE getSetZLoader)

public:
    ZLoader *getSetZLoader(ZLoader *loader = nullptr)
    {
        if (loader)
            m_library = loader->load0(QStringLiteral("libinner.1"));
        return loader;
    }

private:
    QSharedPointer<ZLibrary> m_library;
};

#include "nested.moc"
