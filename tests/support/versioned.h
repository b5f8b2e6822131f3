// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>
#include <QVariant>

#include <zdelegate.h>

/// An application's own interface, of which the versions of one test plugin take turns to be the provider.
class Versioned
{
public:
    enum
    {
        Nobody = -1,
        Dead = -2
    };

    /// Which version answers; `Dead` if it should not be there any more.
    virtual int version() = 0;
    /// The same, after a while in the version's code: see `Census::lingers()`.
    virtual int versionSlowly() = 0;
    virtual ~Versioned() {}
};
Q_DECLARE_INTERFACE(Versioned, "test::Versioned")
Q_DECLARE_METATYPE(Versioned *)

/// Stands for a `Versioned`; answers `Nobody` when there is none.
class VersionedDelegate : public ZDelegate, public Versioned
{
public:
    explicit VersionedDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(object)) { provide<Versioned>(this); }

    int version() override { return forward(&Versioned::version, Nobody); }
    int versionSlowly() override { return forward(&Versioned::versionSlowly, Nobody); }
};

/**
 * What an application hears from the versions of the plugin. It is set on the application object.
 *
 * All is virtual, so that none of the code is the plugin's: whoever tells may be on the way out of memory.
 */
class Census
{
public:
    enum Part
    {
        Root,
        Activity,
        Job
    };

    virtual void isBorn(Part part) = 0;
    virtual void works(Part part, int version) = 0;
    virtual void dies(Part part) = 0;
    /// Called in the middle of `Versioned::versionSlowly()`: comes back when the call may go on.
    virtual void lingers() = 0;

    void setOn(QObject *application) { application->setProperty("census", QVariant::fromValue<void *>(this)); }
    static Census *of(QObject *application)
    {
        return static_cast<Census *>(application->property("census").value<void *>());
    }

protected:
    ~Census() = default;
};
