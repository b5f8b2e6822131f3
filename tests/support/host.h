// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "pluginfolder.h"
#include "testcase.h"

#include <QJsonObject>

#include <zdefaultconfig.h>
#include <zdefaultemitter.h>
#include <zdefaultloader.h>

/// A wiring for a loader, which leaves the application's library paths as they were.
class Host : public Wiring
{
public:
    /// Makes `loader` a component with this section "loader".
    template <class Loader = ZDefaultLoader>
    Loader *wire(const QJsonValue &section, Loader *loader = new Loader) const
    {
        const QJsonObject config{{QStringLiteral("loader"), section}};
        emitter()->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, config));
        emitter()->inject0(loader);
        return loader;
    }

private:
    LibraryPaths m_paths;
};

/// A loader that writes down which names it was asked to load.
class Spy : public ZDefaultLoader
{
public:
    QStringList asked;

    QSharedPointer<ZLibrary> load0(QString name) override
    {
        asked.append(name);
        return ZDefaultLoader::load0(name);
    }
};
