// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zconfig.h"
#include "zowned.h"
#include "ztestplace.h"

/**
 * A configuration that is written in the test itself:
 *
 *     new ZLiteralConfig(R"({"plugins": {"recorder": {"file": "a.db"}}})")
 *
 * Ownership: as any component.
 * Thread:    any.
 * Failure:   if the text is not a JSON object, the current test function fails, and the configuration is empty.
 */
class ZLiteralConfig : public QObject, public ZConfig, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZConfig)

public:
    explicit ZLiteralConfig(const QJsonObject &object);
    explicit ZLiteralConfig(const char *json, const ZTestPlace &place = ZTestPlace());
    ~ZLiteralConfig() override;

    QJsonObject toJson0() override;

private:
    const QJsonObject m_object;
};
