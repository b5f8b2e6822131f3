// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>
#include <QString>

class ZLibrary;

/**
 * Loads plugins by name, and returns shared references to them.
 *
 * Ownership: a library stays loaded while anyone holds its pointer; the loader keeps none for you.
 * Thread:    any; while a plugin is loaded, other loads of the same plugin wait.
 * Failure:   a null pointer. The log says why a file was not loaded, also what its code has thrown. The log says
 *            nothing if no file was looked for. That is so in two cases: a plain name is looked for only once, and
 *            gives null after that plugin has gone; and a plugin that asks for itself while it is injected gets null.
 */
class ZLoader
{
public:
    /// The plugin called `name` if it is loaded already; never touches the disk.
    virtual QSharedPointer<ZLibrary> loaded0(QString name) = 0;
    /// The plugin called `name`; it is loaded if it is not loaded yet. "clock", "libclock" and "libclock.so" are one
    /// plugin, with all its versions. Among these a library is found by the name under which it was loaded.
    virtual QSharedPointer<ZLibrary> load0(QString name) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZLoader() {}
};
Q_DECLARE_INTERFACE(ZLoader, "zdefault::ZLoader")
Q_DECLARE_METATYPE(ZLoader *)
