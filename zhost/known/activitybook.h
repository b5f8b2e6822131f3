// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMutex>
#include <QSharedPointer>
#include <QStringList>
#include <QVector>
#include <QWeakPointer>

#include <zdefaultscheduler.h>

/**
 * What is scheduled with the host's scheduler, and whose it is.
 *
 * Ownership: none of an activity.
 * Thread:    any.
 */
class ActivityBook
{
public:
    void scheduled(const QSharedPointer<ZScheduledActivity> &activity);

    /// Those of the classes of `file` that are alive. Whoever has one of them keeps it so.
    QVector<QSharedPointer<ZScheduledActivity>> activities(const QString &file) const;
    /// What they were called when they were scheduled.
    QStringList names(const QString &file) const;

private:
    struct Activity
    {
        QWeakPointer<ZScheduledActivity> activity;
        QString name;
        QString file;
    };

    mutable QMutex m_mutex; // guards all that follow
    QVector<Activity> m_activities;
};

/// A scheduler that enters in a book what it is given.
class RecordingScheduler : public ZDefaultScheduler
{
public:
    explicit RecordingScheduler(ActivityBook *book) : m_book(book) {}
    bool schedule0(QSharedPointer<ZScheduledActivity> activity) override;

private:
    ActivityBook *const m_book;
};
