// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>
#include <QString>

class ZLibrary;

/**
 * Loads plugins by name and hands out shared references to them.
 *
 * Ownership: a library stays loaded while anyone holds its pointer; the loader keeps none for you.
 * Thread:    any; a load makes others of the same plugin wait.
 * Failure:   a null pointer. The log tells why a file was not loaded, also what its code has thrown. It tells nothing
 *            where none was looked for: a plain name is looked for once, and answers null when what it was is gone; and
 *            a plugin gets null that asks for itself while it is injected.
 */
class ZLoader
{
public:
    /// The plugin called `name` if it is loaded already; never touches the disk.
    virtual QSharedPointer<ZLibrary> loaded0(QString name) = 0;
    /// The plugin called `name`, loaded if need be. "clock", "libclock" and "libclock.so" are kept together as one
    /// plugin with all its versions; within it a library answers to the name under which it was loaded.
    virtual QSharedPointer<ZLibrary> load0(QString name) = 0;
    // Slot order is our promise to plugins built elsewhere: a new ability is a new interface.
    virtual ~ZLoader() {}
};
Q_DECLARE_INTERFACE(ZLoader, "zdefault::ZLoader")
Q_DECLARE_METATYPE(ZLoader *)
