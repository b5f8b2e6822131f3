// SPDX-License-Identifier: Apache-2.0
// Brings a library of Qt's into the process that nobody else uses, and uses it.
#include <zobject.h>

#include <QSqlDatabase>

class Bringer : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    Bringer()
    {
        QSqlDatabase::addDatabase("no such driver", "bringer"); // which asks Qt to be told of the application's end
        QSqlDatabase::removeDatabase("bringer");
    }
};

#include "bringer.moc"
