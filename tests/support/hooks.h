// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QCoreApplication>
#include <QVariant>

#include <functional>

class QObject;

/// What a program has the test plugin "mortal" do, and when. It is set on the application object; the functions are the
/// program's, and so stay when the plugin goes.
struct Hooks
{
    std::function<void()> constructed;     ///< in the constructor of its root
    std::function<void()> written;         ///< in the writer of a property
    std::function<void(QObject *)> ending; ///< in the destructor of its root
    std::function<void()> job;             ///< in a job of the root's own pool, which each call starts
    int chain = 0;                         ///< so many deletions the destructor posts, each from the one before
    QObject *chainHome = nullptr;          ///< on whose thread they are posted, if not on the root's
    bool ticks = false;                    ///< has a timer that runs, and so must end on its own thread
    bool shoots = false;                   ///< has single shots that are to be fired when it has gone
    bool serves = false;                   ///< as `ZTempFile`
    bool holdsItself = false;              ///< until the application quits

    Hooks() { qApp->setProperty("hooks", QVariant::fromValue<void *>(this)); }
    ~Hooks() { qApp->setProperty("hooks", QVariant()); }

    static Hooks *instance() { return static_cast<Hooks *>(qApp->property("hooks").value<void *>()); }

private:
    Q_DISABLE_COPY(Hooks)
};
