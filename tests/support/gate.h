// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QSemaphore>
#include <QVariant>

/// Holds calls inside a plugin for as long as a test wants. The test sets it on the plugin's root.
struct Gate
{
    QSemaphore entered;
    QSemaphore leave;

    void setOn(QObject *root) { root->setProperty("gate", QVariant::fromValue<void *>(this)); }

    /// For the plugin: waits at the gate that is set on `root`, if there is one.
    static void pass(const QObject *root)
    {
        if (auto *gate = static_cast<Gate *>(root->property("gate").value<void *>())) {
            gate->entered.release();
            gate->leave.acquire();
        }
    }
};
