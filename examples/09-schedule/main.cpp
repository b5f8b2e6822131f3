// SPDX-License-Identifier: Apache-2.0
#include <zdbussubscriber.h>
#include <zdefaultdbus.h>
#include <zdefaultemitter.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>

#include <QCoreApplication>
#include <QTextStream>

#include <climits>

// An endpoint. It is called on whatever thread its caller has: a scheduled call comes on a thread of its own.
class Counter : public ZDbusSubscriber
{
public:
    bool invoked(const QUrl &url, QJsonObject *, QJsonObject *out) override
    {
        if (url.path() == "/add")
            return m_count.fetchAndAddOrdered(1) < 3; // a repeated call goes on until it is not handled
        if (url.path() == "/read" && out)
            out->insert("count", m_count.loadAcquire());
        return out;
    }

private:
    QAtomicInt m_count;
};

class Program : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZDbus *zDbus MEMBER dbus)
    Q_PROPERTY(ZScheduler *zScheduler MEMBER scheduler)
    Q_PROPERTY(ZThreadPoolSet *zPoolSet MEMBER pools)

public:
    ZDbus *dbus = nullptr;
    ZScheduler *scheduler = nullptr;
    ZThreadPoolSet *pools = nullptr;
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    auto emitter = QSharedPointer<ZDefaultEmitter>::create();
    emitter->install(emitter);
    emitter->zemit0(ZDefaultThreadPoolSet::TypeName);
    emitter->zemit0(ZDefaultDbus::TypeName);
    emitter->zemit0(ZDefaultScheduler::TypeName); // after the bus: it answers at //zscheduler then
    Program program;
    emitter->inject0(&program);

    auto counter = QSharedPointer<Counter>::create(); // the bus holds it weakly
    program.dbus->bind0(QUrl("//counter"), counter);

    auto every = QSharedPointer<ZPeriodicSchedule>::create(20); // milliseconds
    program.scheduler->schedule0(
        QSharedPointer<ZDbusActivity>::create(every, program.dbus, QUrl("//counter/add"), true));
    program.pools->find0("Pool-ZSchedulerThread")->waitAll(ULONG_MAX); // until all activities have ended

    QJsonObject answer;
    program.dbus->invoke0(QUrl("//counter/read"), nullptr, &answer);
    QTextStream(stdout) << "counted to " << answer.value("count").toInt() << Qt::endl;
    emitter->install({});
}

#include "main.moc"
