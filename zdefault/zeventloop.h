// SPDX-License-Identifier: Apache-2.0
// Has the event loop of a thread do something.
#pragma once

#include <QtGlobal>

#include <functional>
#include <memory>

QT_BEGIN_NAMESPACE
class QObject;
class QThread;
QT_END_NAMESPACE

/// Whether `thread` is the application object's.
bool zIsMain(const QThread *thread);

/// Whether events that are posted to objects of `thread` are delivered there: by its event loop or, at the latest, when
/// the thread ends.
bool zHasEventLoop(QThread *thread);

/// Has the event loop of `thread` run `deed`, which must not throw.
void zPost(QThread *thread, std::function<void()> deed);

/// Runs `deed` on `thread`, after the objects that were just posted there for deletion have been deleted, and the
/// objects that those deletions have posted in turn.
void zAfterDeletions(QThread *thread, std::function<void()> deed);

/// Deletes the objects that are posted for deletion on this thread, as its event loop would do now. Call it only in
/// what the event loop has called: other code may have posted objects that it still uses.
void zDeletePosted();

/// Lets go of `held`, which keeps `object` alive. If `object` lives on another thread, and that has an event loop, this
/// is done there, since a timer, or anything else that Qt ties to a thread, must end there. Else it is done here, at
/// once.
void zLetGoAtHome(QObject *object, std::shared_ptr<void> held);
