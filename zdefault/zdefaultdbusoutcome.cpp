// SPDX-License-Identifier: Apache-2.0
#include "zdefaultdbusoutcome.h"

#include "zdbusoutcomes.h"
#include "ztypename.h"
#include "zwiring.h"

const char *zDefaultDbusOutcomeTypeName() { return zTypeName<ZDefaultDbusOutcome>("ZDefaultDbusOutcome*"); }

const char *const ZDefaultDbusOutcome::TypeName = zDefaultDbusOutcomeTypeName();

ZDefaultDbusOutcome::ZDefaultDbusOutcome() = default;

bool ZDefaultDbusOutcome::call0(const QUrl &url, QJsonObject *in, QJsonObject *out, QJsonObject *outcome)
{
    const bool isHandled = m_dbus && m_dbus->invoke0(url, in, out);
    if (!outcome)
        return isHandled;
    const bool isForAll = url.host(QUrl::FullyDecoded).isEmpty();
    if (isHandled)
        *outcome = zHandled();
    else if (m_dbus && isBound(url))
        *outcome = zFailed(404, QStringLiteral("refused"), true);
    else
        *outcome = zNobody();
    if (isForAll && !isHandled)
        outcome->remove(QStringLiteral("called"));
    return isHandled;
}

ZDbus *ZDefaultDbusOutcome::getSetZDbus(ZDbus *dbus)
{
    zKeepFirst(m_dbus, dbus);
    return m_dbus;
}

ZEmitter *ZDefaultDbusOutcome::getSetZEmitter(ZEmitter *emitter)
{
    return zAnnounce<ZDbusOutcomeDelegate>(this, emitter);
}

/// Whether a call of `url` leads to an endpoint; if it is one of all, whether there is any.
bool ZDefaultDbusOutcome::isBound(const QUrl &url) const
{
    if (url.host(QUrl::FullyDecoded).isEmpty())
        return !m_dbus->findAll0(QRegularExpression()).isEmpty();
    QUrl bare = url;
    bare.setPath(QString());
    return m_dbus->find0(url) || m_dbus->find0(bare);
}

bool ZDbusOutcomeDelegate::call0(const QUrl &url, QJsonObject *in, QJsonObject *out, QJsonObject *outcome)
{
    return call(&ZDbusOutcome::call0, false, url, in, out, outcome);
}
