// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QString>

#include <atomic>
#include <thread>

class ZLease;

/**
 * Does what is to be done once in each slot, if the lease is had: appends "SLOT NAME BEGUN" to a file, as soon as a
 * slot begins, and "SLOT NAME DONE" a bit later.
 *
 * Options: "lease", "slot" (milliseconds), "file", "name", "tries": how often a slot is tried, which is 1 unless it is
 * given.
 */
class NodeWork
{
public:
    NodeWork(const QJsonObject &options, ZLease *lease);
    ~NodeWork();

    /// {"slots", "begun", "reason": of the last slot that was not begun}
    QJsonObject stop();

private:
    void work();

    const QString m_lease, m_file, m_name;
    const int m_slot;
    const int m_tries;
    ZLease *const m_service;
    int m_slots = 0, m_begun = 0;
    QString m_reason;
    std::atomic_bool m_isOver{false};
    std::thread m_thread;
};
