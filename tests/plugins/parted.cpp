// SPDX-License-Identifier: Apache-2.0
// A plugin whose endpoints are parts of it. Its second version has one less.
#include "gate.h"

#include <zendpoint.h>

#include <QAtomicInt>
#include <QCoreApplication>

#include <stdexcept>

namespace {

/// How the last part of the second version begins.
bool begins(const char *way)
{
    return PARTED_VERSION == 2 && qApp->property("begins").toString().startsWith(QLatin1String(way));
}

} // namespace

class Part : public ZEndpoint
{
    Q_OBJECT

public:
    Part(const char *url, ZObject *root) : ZEndpoint(QUrl(QLatin1String(url)), root) {}

protected:
    void begin(const QJsonObject &state) override
    {
        if (begins("without its last") && parent()->children().constFirst() == this)
            delete parent()->children().at(1);
        m_count = state.value("count").toInt();
    }

    bool called(const QUrl &, QJsonObject *in, QJsonObject *out) override
    {
        m_count.ref();
        if (in && in->contains(QLatin1String("other"))) { // which is called when both are to end
            Gate::pass(qApp);
            return zDbus()->invoke0(QUrl(in->value("other").toString()), nullptr, out);
        }
        if (out)
            *out = {{"isWired", zLogger() && zScheduler() && zConfig()},
                    {"errors", settings().errors().size()},
                    {"version", PARTED_VERSION},
                    {"count", m_count.loadAcquire()}};
        return true;
    }

    QJsonObject handOver() override { return {{"count", m_count.loadAcquire()}}; }

private:
    QAtomicInt m_count;
};

class LastPart : public Part
{
    Q_OBJECT

public:
    using Part::Part;

protected:
    void begin(const QJsonObject &state) override
    {
        if (begins("with an exception"))
            throw std::runtime_error("cannot begin");
        if (begins("by letting go"))
            letGo();
        Part::begin(state);
    }
};

/// No more than an endpoint must have.
class BarePart : public ZEndpoint
{
    Q_OBJECT

public:
    explicit BarePart(ZObject *root) : ZEndpoint(QUrl("//bare"), root) {}

protected:
    bool called(const QUrl &, QJsonObject *, QJsonObject *out) override
    {
        if (out)
            *out = {{"version", PARTED_VERSION}};
        return true;
    }
};

class Parted : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    Parted()
    {
        new Part("//parted", this);
        new LastPart(begins("where nobody is called") ? "no-host" : "//parted/last", this);
        new BarePart(this);
        if (PARTED_VERSION == 1)
            new Part("//parted/dropped", this);
        if (PARTED_VERSION == 3)
            new BarePart(this); // of the same URL
    }
};

#include "parted.moc"
