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
 * Thread:    any; the first load of a plugin makes other loads wait.
 * Failure:   a null pointer; the reason is in the log, written once.
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
