// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMutex>
#include <QSharedPointer>
#include <QStringList>
#include <QVector>
#include <QWeakPointer>

#include <zdefaultscheduler.h>

/**
 * Records what is scheduled with the host's scheduler, and to which plugin it belongs.
 *
 * Ownership: owns no activity.
 * Thread:    any.
 */
class ActivityBook
{
public:
    void scheduled(const QSharedPointer<ZScheduledActivity> &activity);

    /// The activities that are alive and whose classes are in `file`. The returned pointers keep them alive.
    QVector<QSharedPointer<ZScheduledActivity>> activities(const QString &file) const;
    /// The names that these activities had when they were scheduled.
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

/// A scheduler that records its activities in a book.
class RecordingScheduler : public ZDefaultScheduler
{
public:
    explicit RecordingScheduler(ActivityBook *book) : m_book(book) {}
    bool schedule0(QSharedPointer<ZScheduledActivity> activity) override;

private:
    ActivityBook *const m_book;
};
