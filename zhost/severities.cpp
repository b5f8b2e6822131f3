// SPDX-License-Identifier: Apache-2.0
#include "severities.h"

#include <QLoggingCategory>

#include <utility>

namespace {

constexpr std::pair<const char *, QtMsgType> severities[] = {
    {"debug", QtDebugMsg}, {"info", QtInfoMsg}, {"warning", QtWarningMsg}, {"critical", QtCriticalMsg}};

} // namespace

QJsonObject Severities::now()
{
    QJsonObject result;
    for (const auto &[name, type] : severities)
        result.insert(QLatin1String(name), QLoggingCategory::defaultCategory()->isEnabled(type));
    return result;
}

void Severities::set(const QJsonObject &switches)
{
    for (const auto &[name, type] : severities) {
        if (const QJsonValue isOn = switches.value(QLatin1String(name)); isOn.isBool())
            QLoggingCategory::defaultCategory()->setEnabled(type, isOn.toBool());
    }
}

QString Severities::whyNot(const QJsonObject &switches)
{
    const QJsonObject known = now();
    for (auto one = switches.begin(); one != switches.end(); ++one) {
        if (!known.contains(one.key()))
            return QStringLiteral("there is no severity \"%1\"").arg(one.key());
        if (!one->isBool())
            return QStringLiteral("the severity \"%1\" must be true or false").arg(one.key());
    }
    return {};
}
