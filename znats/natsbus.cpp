// SPDX-License-Identifier: Apache-2.0
#include "natsbus.h"

#include "afterlife.h"
#include "engine.h"
#include "pin.h"
#include "thisprocess.h"

#include <QCoreApplication>
#include <QJsonObject>
#include <QSet>

#include <zdbuslayers.h>
#include <zdefaultdbusoutcome.h>
#include <zleasedelegate.h>

#include <algorithm>

namespace {

constexpr int SweepMs = 5000; // for endpoints that do not tell when they die
constexpr int BindMs = 200;   // for the broker to hear of an endpoint, until its binder goes on

const QString layerName = QStringLiteral("nats");
const QString section = QStringLiteral("nats");

QUrl bareOf(const QUrl &url)
{
    QUrl bare;
    bare.setHost(url.host(QUrl::FullyDecoded), QUrl::DecodedMode);
    return bare;
}

/// Calls the component behind a reference.
template <class Delegate>
class Behind : public Delegate
{
public:
    explicit Behind(const QSharedPointer<ZReference> &reference) : Delegate(QSharedPointer<QObject>())
    {
        this->replace(reference);
    }
};

/// Whether it serves `ZDbusOutcome`: by a call that nothing handles.
bool tellsOutcome(const QSharedPointer<ZReference> &layer)
{
    QJsonObject outcome;
    Behind<ZDbusOutcomeDelegate>(layer).call0(QUrl(QStringLiteral("//nats#")), nullptr, nullptr, &outcome);
    return !outcome.isEmpty();
}

bool tell(QJsonObject *outcome, const Failure &failure, const QString &host = {})
{
    if (!outcome)
        return !failure;
    *outcome = {{QStringLiteral("code"), failure ? failure.code : 200}};
    if (failure)
        outcome->insert(QStringLiteral("reason"), failure.reason);
    if (!failure || failure.called != Failure::Unknown)
        outcome->insert(QStringLiteral("called"), !failure || failure.called == Failure::Yes);
    if (!host.isEmpty())
        outcome->insert(QStringLiteral("host"), host);
    return !failure;
}

Failure failureOf(ZDbusReach::Reached reached)
{
    if (reached == ZDbusReach::Handled)
        return {};
    return reached == ZDbusReach::Refused ? Failure::Refused : Failure::Nobody;
}

/// Of a call to all endpoints: whether any was called is not said of one that failed.
bool tellOfAll(QJsonObject *outcome, Failure failure)
{
    failure.called = Failure::Unknown;
    return tell(outcome, failure);
}

} // namespace

/// Where this version belongs among the layers of the bus.
struct NatsBus::Place
{
    QSharedPointer<ZReference> above; // that lies over us; null if none does
    QSharedPointer<ZReference> below; // null if the layers lead nowhere
    bool isOutcomeAbove = false;      // calls by `ZDbusOutcome` come from there

    static Place in(ZDbus *bus)
    {
        const QVector<QSharedPointer<ZReference>> layers = zDbusLayers(bus);
        for (int i = 0; i + 1 < layers.size(); ++i) {
            const auto layer = layers.cbegin() + i;
            if (Behind<ZDbusLayerDelegate>(*layer).layer0() == layerName) // the version before
                return {layers.value(i - 1), layers.at(i + 1), std::any_of(layers.cbegin(), layer, tellsOutcome)};
        }
        return {{}, layers.value(0), false};
    }
};

NatsBus::NatsBus() = default;

NatsBus::~NatsBus()
{
    if (!m_engine)
        return;
    if (m_isReplaced && !m_isQuitting) {
        Afterlife::begin(m_engine, *this);
    } else { // with its host, whose logger goes next
        m_engine->end();
        m_engine->leaveBehind();
        Afterlife::endAll();
    }
}

ZEmitter *NatsBus::getSetZEmitter(ZEmitter *emitter)
{
    if (emitter && m_dbus && !m_engine)
        start(*emitter);
    return emitter;
}

bool NatsBus::start(ZEmitter &emitter)
{
    const Log log(m_logger);
    const QJsonObject configuration = m_config ? m_config->toJson0() : QJsonObject();
    if (!configuration.contains(section)) {
        log.info(QStringLiteral("no section \"nats\": the bus stays within this process"));
        return false;
    }
    QStringList problems;
    if (!configuration.value(section).isObject())
        problems.append(QStringLiteral("nats: must be an object"));
    const NatsSettings settings = NatsSettings::read(configuration.value(section).toObject(), &problems);
    problems += settings.fileProblems();
    const Place place = Place::in(m_dbus);
    if (!place.below)
        problems.append(QStringLiteral("nats: the layers of the bus lead nowhere"));
    for (const QString &problem : qAsConst(problems))
        log.warnOf(problem);
    if (!problems.isEmpty()) {
        log.warn(QStringLiteral("the bus stays within this process"));
        return false;
    }
    pinClientLibrary();
    thisProcess();
    m_engine = std::make_shared<Engine>(settings, log);
    m_engine->setBelow(place.below);
    // Others reach us before we take the place of a version that they reach now.
    m_engine->open();

    m_engine->below.invoke0(QUrl(QStringLiteral("//nats/replaced#")), nullptr, nullptr); // the version before, if any
    QJsonObject before;
    if (m_engine->below.invoke0(QUrl(QStringLiteral("//nats/printd#")), nullptr, &before))
        m_engine->leases.inherit(before.value(QStringLiteral("leases")).toArray());
    const QSharedPointer<QObject> self = shared();
    const auto bus = QSharedPointer<ZDbusDelegate>::create(self);
    if (place.above)
        Behind<ZDbusLayerDelegate>(place.above).setNext0(*bus);
    else
        emitter.bind0(bus);
    if (!place.isOutcomeAbove)
        emitter.bind0(QSharedPointer<ZDbusOutcomeDelegate>::create(self));
    emitter.bind0(QSharedPointer<ZLeaseDelegate>::create(self));
    m_engine->below.bind0(QUrl(QStringLiteral("//nats")), qSharedPointerDynamicCast<ZDbusSubscriber>(self));
    m_engine->provider.sweep(); // what was bound meanwhile
    m_engine->flush();
    QMetaObject::invokeMethod(this, [this] { startTimer(SweepMs); }); // on its own thread, whoever loads it
    connect(qApp, &QCoreApplication::aboutToQuit, this, &NatsBus::quit);
    return true;
}

bool NatsBus::bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber)
{
    if (!m_engine->below.bind0(url, subscriber))
        return false;
    if (!m_engine->settings.serves(url.host(QUrl::FullyDecoded)))
        return true;
    m_engine->provider.serve(url);
    if (const QSharedPointer<ZDbusSubscriber> alive = subscriber.toStrongRef()) {
        if (auto *const object = dynamic_cast<QObject *>(alive.data()))
            connect(object, &QObject::destroyed, this, &NatsBus::sweep,
                    static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
    }
    m_engine->connection.flush(BindMs);
    return true;
}

bool NatsBus::find0(const QUrl &url)
{
    if (!isElsewhere(url) && m_engine->below.find0(url))
        return true;
    return !url.host().isEmpty() && m_engine->remote.find(url);
}

QList<QUrl> NatsBus::findAll0(const QRegularExpression &re)
{
    QList<QUrl> urls = m_engine->below.findAll0(re);
    if (!re.isValid())
        return urls;
    QSet<QString> known;
    for (const QUrl &url : qAsConst(urls))
        known.insert(url.toString());
    const QList<QUrl> others = m_engine->remote.findAll(re);
    for (const QUrl &url : others) {
        if (known.contains(url.toString()))
            continue;
        known.insert(url.toString());
        urls.append(url);
    }
    return urls;
}

bool NatsBus::invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) { return call0(url, in, out, nullptr); }

bool NatsBus::call0(const QUrl &url, QJsonObject *in, QJsonObject *out, QJsonObject *outcome)
{
    if (!isElsewhere(url)) {
        if (m_engine->settings.broadcastAll && url.host().isEmpty())
            return callAll(url, in, out, outcome);
        const ZDbusReach::Reached reached = reachHere(url, in, out);
        if (reached == ZDbusReach::Handled)
            return !outcome || tell(outcome, {});
        if (url.host().isEmpty())
            return tellOfAll(outcome, failureOf(reached));
        if (reached == ZDbusReach::Refused)
            return tell(outcome, Failure::Refused); // it is ours, and goes no further
    }
    QString host;
    const Failure failure = m_engine->call(url, in, out, &host);
    return tell(outcome, failure, host);
}

ZDbusReach::Reached NatsBus::reachHere(const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    const ZDbusReach::Reached reached = m_engine->belowReach.reach0(url, in, out);
    if (reached != ZDbusReach::Unsupported)
        return reached;
    ZDbus &below = m_engine->below;
    if (below.invoke0(url, in, out))
        return ZDbusReach::Handled;
    return below.find0(url) || below.find0(bareOf(url)) ? ZDbusReach::Refused : ZDbusReach::Nobody;
}

/// Calls the endpoints of this process, and those of all others that take part.
bool NatsBus::callAll(const QUrl &url, QJsonObject *in, QJsonObject *out, QJsonObject *outcome)
{
    std::optional<QJsonObject> before;
    if (in)
        before = *in;
    const Failure here = failureOf(reachHere(url, in, out));
    const Failure elsewhere = m_engine->callAll(url, before ? &*before : nullptr, out);
    if (!here || !elsewhere)
        return tell(outcome, {});
    return tellOfAll(outcome, elsewhere.code == Failure::Nobody ? here : elsewhere);
}

/// Whether `url` names another process.
bool NatsBus::isElsewhere(const QUrl &url) const
{
    const QString name = url.userName(QUrl::FullyDecoded);
    return !name.isEmpty() && name != m_engine->settings.name && !url.host().isEmpty();
}

QString NatsBus::layer0() { return layerName; }

bool NatsBus::next0(QSharedPointer<ZReference> &next)
{
    next = m_engine->below;
    return true;
}

bool NatsBus::setNext0(const QSharedPointer<ZReference> &next)
{
    m_engine->setBelow(next);
    m_engine->provider.sweep();
    return true;
}

bool NatsBus::want0(const QString &name, int msecs) { return m_engine->leases.want(name, msecs); }

void NatsBus::forget0(const QString &name) { m_engine->leases.forget(name); }

bool NatsBus::begin0(const QString &name, qint64 slot, QString &reason)
{
    return m_engine->leases.begin(name, slot, &reason);
}

bool NatsBus::invoked(const QUrl &url, QJsonObject *, QJsonObject *out)
{
    const QString path = url.path(QUrl::FullyDecoded);
    if (url.host().isEmpty())
        return false;
    if (path == QLatin1String("/replaced")) {
        m_engine->leases.retire();
        return m_isReplaced = true;
    }
    if (!out)
        return false;
    if (path == QLatin1String("/printd"))
        *out = m_engine->describe();
    else if (path == QLatin1String("/hosts"))
        out->insert(QStringLiteral("hosts"), m_engine->inventory.hosts());
    else
        return false;
    return true;
}

void NatsBus::timerEvent(QTimerEvent *) { sweep(); }

void NatsBus::sweep()
{
    if (!m_isQuitting)
        m_engine->provider.sweep();
}

void NatsBus::quit()
{
    m_isQuitting = true;
    m_engine->end();
    m_engine->leaveBehind();
}
