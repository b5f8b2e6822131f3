// SPDX-License-Identifier: Apache-2.0
#include "zdefaultdbusoutcome.h"

#include "zdbusoutcomes.h"
#include "zdefaultdbus.h"
#include "ztypename.h"
#include "zwiring.h"

const char *zDefaultDbusOutcomeTypeName() { return zTypeName<ZDefaultDbusOutcome>("ZDefaultDbusOutcome*"); }

const char *const ZDefaultDbusOutcome::TypeName = zDefaultDbusOutcomeTypeName();

ZDefaultDbusOutcome::ZDefaultDbusOutcome() = default;

bool ZDefaultDbusOutcome::call0(const QUrl &url, QJsonObject *in, QJsonObject *out, QJsonObject *outcome)
{
    const ZDbusReach::Reached reached = reach(url, in, out);
    const bool isHandled = reached == ZDbusReach::Handled;
    if (!outcome)
        return isHandled;
    if (isHandled)
        *outcome = zHandled();
    else
        *outcome = reached == ZDbusReach::Refused ? zFailed(404, QStringLiteral("refused"), true) : zNobody();
    if (!isHandled && url.host(QUrl::FullyDecoded).isEmpty())
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

ZDbusReach::Reached ZDefaultDbusOutcome::reach(const QUrl &url, QJsonObject *in, QJsonObject *out) const
{
    if (!m_dbus)
        return ZDbusReach::Nobody;
    if (auto *const delegate = dynamic_cast<ZDelegate *>(m_dbus)) {
        ZDbusReachDelegate bus(nullptr);
        bus.replace(*delegate);
        const ZDbusReach::Reached reached = bus.reach0(url, in, out);
        if (reached != ZDbusReach::Unsupported)
            return reached;
    }
    if (m_dbus->invoke0(url, in, out))
        return ZDbusReach::Handled;
    return isBound(url) ? ZDbusReach::Refused : ZDbusReach::Nobody;
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
