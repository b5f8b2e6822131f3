// SPDX-License-Identifier: Apache-2.0
#include "natscheck.h"

#include "../znats/natssettings.h"

#include <QJsonObject>

QVector<Finding> checkNats(const QJsonObject &configuration)
{
    const QJsonValue section = configuration.value(QStringLiteral("nats"));
    if (!section.isObject()) // which is another finding
        return {};
    QStringList problems;
    const NatsSettings settings = NatsSettings::read(section.toObject(), &problems);
    problems += settings.fileProblems();
    QVector<Finding> findings;
    for (const QString &problem : qAsConst(problems)) {
        const int colon = problem.indexOf(QStringLiteral(": "));
        findings.append({problem.left(colon), problem.mid(colon + 2), Finding::Wrong});
    }
    return findings;
}
