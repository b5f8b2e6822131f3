// SPDX-License-Identifier: Apache-2.0
// What is done by the event loop of a thread, and when.
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

/// Whether what is posted to objects of `thread` is delivered there, by its event loop or, at the latest, as it ends.
bool zHasEventLoop(QThread *thread);

/// Has the event loop of `thread` do `deed`, which must not throw.
void zPost(QThread *thread, std::function<void()> deed);

/// Does `deed` on `thread` once what the caller has just had posted there for deletion has been deleted, and what those
/// deletions have posted in turn.
void zAfterDeletions(QThread *thread, std::function<void()> deed);

/// Deletes what is posted for deletion on this thread, as its event loop would do now. Only for what the event loop has
/// called: everybody else may have posted what they still use.
void zDeletePosted();

/// Lets go of `held`, which keeps `object` alive, on the thread in which `object` lives if that is another one with an
/// event loop: a timer, or whatever else Qt ties to a thread, must end there. Else here, at once.
void zLetGoAtHome(QObject *object, std::shared_ptr<void> held);
