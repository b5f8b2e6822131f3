// SPDX-License-Identifier: Apache-2.0
#include "metrics.h"

#include "../known/reports.h"

#include <QJsonArray>
#include <QJsonObject>

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

/// Collects families of one metric or several.
class Families
{
public:
    void add(const char *name, const char *help, MetricType type, double value)
    {
        begin(name, help, type);
        add({}, value);
    }
    void begin(const char *name, const char *help, MetricType type) { m_families.push_back({name, help, type, {}}); }
    void add(std::vector<ClientMetric::Label> labels, double value)
    {
        ClientMetric metric;
        metric.label = std::move(labels);
        metric.gauge.value = value; // the serializer takes the one that is of the family's type
        metric.counter.value = value;
        m_families.back().metric.push_back(std::move(metric));
    }
    QByteArray text() const { return QByteArray::fromStdString(prometheus::TextSerializer().Serialize(m_families)); }

private:
    std::vector<MetricFamily> m_families;
};

std::string textIn(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString().toStdString();
}

double numberIn(const QJsonObject &object, const char *key) { return object.value(QLatin1String(key)).toDouble(); }

void addHost(Families *families, const QJsonObject &host)
{
    constexpr auto gauge = MetricType::Gauge;
    families->add("zhost_healthy", "Whether the host does its work.", gauge,
                  host.value(QStringLiteral("healthy")).toBool());
    families->add("zhost_ready", "Whether all plugins have been loaded, and the host is not stopping.", gauge,
                  host.value(QStringLiteral("state")) == QLatin1String("running"));
    families->add("zhost_event_loop_delay_seconds", "How long what is posted to the event loop waits.", gauge,
                  numberIn(host.value(QStringLiteral("loop")).toObject(), "delayMs") / 1000);
    families->add("process_resident_memory_bytes", "Memory of the process.", gauge, numberIn(host, "residentBytes"));
    families->add("process_open_fds", "Open descriptors.", gauge, numberIn(host, "descriptors"));
    families->add("process_threads", "Threads of the process.", gauge, numberIn(host, "threads"));
    families->add("process_cpu_seconds_total", "CPU time of the process.", MetricType::Counter,
                  numberIn(host, "cpuMs") / 1000);
}

void addPlugins(Families *families, const QJsonArray &plugins)
{
    families->begin("zhost_plugin_in_memory", "Files of plugins, and whether they are in memory.", MetricType::Gauge);
    for (const auto &value : plugins) {
        const QJsonObject plugin = value.toObject();
        families->add({{"plugin", textIn(plugin, "plugin")},
                       {"file", textIn(plugin, "file")},
                       {"state", textIn(plugin, "state")}},
                      plugin.value(QStringLiteral("inMemory")).toBool());
    }
}

void addServices(Families *families, const QJsonArray &services)
{
    families->begin("zhost_service_exchanges_total", "How often who serves an interface was exchanged.",
                    MetricType::Counter);
    for (const auto &value : services) {
        const QJsonObject service = value.toObject();
        families->add({{"interface", textIn(service, "interface")}}, numberIn(service, "exchanges"));
    }
}

void addSchedule(Families *families, const QJsonArray &schedule)
{
    const auto addAll = [&](const char *name, const char *help, MetricType type, const char *key, double factor) {
        families->begin(name, help, type);
        for (const auto &value : schedule) {
            const QJsonObject entry = value.toObject();
            families->add({{"index", std::to_string(entry.value(QStringLiteral("index")).toInt())},
                           {"url", textIn(entry, "url")}},
                          numberIn(entry, key) * factor);
        }
    };
    addAll("zhost_schedule_runs_total", "Calls of the timetable.", MetricType::Counter, "runs", 1);
    addAll("zhost_schedule_failures_total", "Calls of the timetable that nobody handled.", MetricType::Counter,
           "failures", 1);
    addAll("zhost_schedule_skipped_total", "Calls of the timetable that were left to another host.",
           MetricType::Counter, "skipped", 1);
    addAll("zhost_schedule_last_seconds", "How long the last call took.", MetricType::Gauge, "lastMs", 0.001);
}

/// Of the bus past this process.
void addBus(Families *families, const QJsonObject &bus)
{
    constexpr auto gauge = MetricType::Gauge, counter = MetricType::Counter;
    const auto part = [&](const char *key) { return bus.value(QLatin1String(key)).toObject(); };
    const QJsonObject connection = part("connection");
    families->add("zhost_bus_connected", "Whether the bus reaches other processes.", gauge,
                  connection.value(QStringLiteral("state")) == QLatin1String("connected"));
    if (!bus.value(QStringLiteral("error")).toString().isEmpty())
        return; // a counter that falls to 0 would count as one that begins anew
    families->add("zhost_bus_reconnects_total", "How often the connection was made anew.", counter,
                  numberIn(connection, "reconnects"));
    if (numberIn(connection, "rttMs") > 0) // it may not be told
        families->add("zhost_bus_round_trip_seconds", "To the broker and back.", gauge,
                      numberIn(connection, "rttMs") / 1000);
    const auto addCalls = [&](const char *name, const char *help, MetricType type, const char *key) {
        families->begin(name, help, type);
        for (const char *const direction : {"out", "in"})
            families->add({{"direction", direction}}, numberIn(part(direction), key));
    };
    addCalls("zhost_bus_calls_total", "Calls to other processes, and from them.", counter, "calls");
    addCalls("zhost_bus_call_failures_total", "Those that were not handled.", counter, "failures");
    addCalls("zhost_bus_calls_under_way", "Those that have not come back.", gauge, "underWay");
    families->begin("zhost_bus_failures_total", "Calls to other processes that failed, by the reason.", counter);
    const QJsonArray reasons = bus.value(QStringLiteral("reasons")).toArray();
    for (const auto &reason : reasons)
        families->add({{"reason", textIn(reason.toObject(), "reason")}}, numberIn(reason.toObject(), "failures"));
    families->begin("zhost_bus_latency_seconds", "How long the last calls took.", gauge);
    for (const char *const direction : {"out", "in"}) {
        for (const auto &[quantile, key] : {std::pair{"0.5", "p50Ms"}, std::pair{"0.99", "p99Ms"}})
            families->add({{"direction", direction}, {"quantile", quantile}}, numberIn(part(direction), key) / 1000);
    }
    families->begin("zhost_bus_queue", "Calls from other processes that wait for a thread, or have one.", gauge);
    for (const char *const state : {"waiting", "running"})
        families->add({{"state", state}}, numberIn(part("queue"), state));
    families->add("zhost_bus_queue_most", "How many calls may wait.", gauge, numberIn(part("queue"), "most"));
    families->add("zhost_bus_hosts", "Other processes that were seen lately.", gauge,
                  bus.value(QStringLiteral("hosts")).toArray().size());
}

} // namespace

QByteArray metricsText(const Reports &reports, const BusCalls::Counts &calls, const QJsonObject &bus)
{
    Families families;
    addHost(&families, reports.host());
    addPlugins(&families, reports.plugins());
    addServices(&families, reports.services());
    addSchedule(&families, reports.schedule());
    families.add("zhost_door_calls_total", "Calls of the bus that were made by the door.", MetricType::Counter,
                 double(calls.calls));
    families.add("zhost_door_call_failures_total", "Those that nobody handled, or that have thrown.",
                 MetricType::Counter, double(calls.failures));
    if (!bus.isEmpty())
        addBus(&families, bus);
    return families.text();
}
