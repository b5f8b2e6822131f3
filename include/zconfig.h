// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QMetaType>
#include <QObject>

/**
 * The application's configuration: one JSON object, from which every service reads its own section.
 *
 * Ownership: returns copies; the caller keeps nothing of the configuration's.
 * Thread:    any.
 * Failure:   an empty object when there is no configuration.
 */
class ZConfig
{
public:
    /// The whole configuration. A section is `toJson0().value("its name")`.
    virtual QJsonObject toJson0() = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZConfig() {}
};
Q_DECLARE_INTERFACE(ZConfig, "zdefault::ZConfig")
Q_DECLARE_METATYPE(ZConfig *)
