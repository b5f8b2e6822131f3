// SPDX-License-Identifier: Apache-2.0
// The whole system, built as an application builds it.
#include "folder.h"
#include "pluginfolder.h"
#include "testcase.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QPointer>
#include <QThread>
#include <QVector>

#include <zdbussubscriber.h>
#include <zdefaultconfig.h>
#include <zdefaultcontext.h>
#include <zdefaultdbus.h>
#include <zdefaultemitter.h>
#include <zdefaultfilesystem.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>
#include <zjobpool.h>
#include <zlibrary.h>
#include <zobject.h>
#include <zthreadpool.h>

/// Consumes every service.
class Consumer : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZConfig *config MEMBER config)
    Q_PROPERTY(ZContext *context MEMBER context)
    Q_PROPERTY(ZDbus *dbus MEMBER dbus)
    Q_PROPERTY(ZEmitter *emitter MEMBER emitter)
    Q_PROPERTY(ZJobPoolSet *jobPools MEMBER jobPools)
    Q_PROPERTY(ZLoader *loader MEMBER loader)
    Q_PROPERTY(ZLogger *logger MEMBER logger)
    Q_PROPERTY(ZScheduler *scheduler MEMBER scheduler)
    Q_PROPERTY(ZTempFile *tempFiles MEMBER tempFiles)
    Q_PROPERTY(ZThreadPoolSet *threadPools MEMBER threadPools)

public:
    ZConfig *config = nullptr;
    ZContext *context = nullptr;
    ZDbus *dbus = nullptr;
    ZEmitter *emitter = nullptr;
    ZJobPoolSet *jobPools = nullptr;
    ZLoader *loader = nullptr;
    ZLogger *logger = nullptr;
    ZScheduler *scheduler = nullptr;
    ZTempFile *tempFiles = nullptr;
    ZThreadPoolSet *threadPools = nullptr;
};

/// An application that has started.
class Application : public Wiring
{
public:
    const Folder deployed;
    const Folder hotDeploy;
    const Folder temporary;
    QVector<QPointer<QObject>> components; // but the emitter
    Consumer services;

    Application()
    {
        const QJsonObject logger{{QStringLiteral("log"), QJsonObject{{QStringLiteral("zdefault"), 15}}}};
        const QJsonObject loader{{QStringLiteral("deployed"), deployed.path()},
                                 {QStringLiteral("hot-deploy"), hotDeploy.path()}};
        const QJsonObject filesystem{{QStringLiteral("temporary-folder"), temporary.path()},
                                     {QStringLiteral("temporary-fn-template"), QStringLiteral("startup-XXXXXX")}};
        const QJsonObject config{{QStringLiteral("logger"), logger},
                                 {QStringLiteral("loader"), loader},
                                 {QStringLiteral("filesystem"), filesystem}};
        components.append(emitter()->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, config)));
        for (const char *const service :
             {ZDefaultLogger::TypeName, ZDefaultLoader::TypeName, ZDefaultTempFile::TypeName,
              ZDefaultJobPoolSet::TypeName, ZDefaultThreadPoolSet::TypeName, ZDefaultDbus::TypeName,
              ZDefaultContext::TypeName, ZDefaultScheduler::TypeName})
            components.append(emitter()->zemit0(service));
        emitter()->inject0(&services);
    }

private:
    LibraryPaths m_paths;
};

/// Handles a given number of calls, and writes down how each came.
class Probe : public ZDbusSubscriber
{
public:
    explicit Probe(ZThreadPoolSet *threadPools, int count) : m_threadPools(threadPools), m_count(count) {}

    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        urls.append(url);
        withoutArguments &= !in && !out;
        threads.append(QThread::currentThread());
        threadNames.append(QThread::currentThread()->objectName());
        registered = m_threadPools->find0(QStringLiteral("Pool-ZSchedulerThread"))->printd();
        return urls.size() <= m_count;
    }

    QList<QUrl> urls;
    bool withoutArguments = true;
    QVector<QPointer<QThread>> threads;
    QStringList threadNames;
    QJsonArray registered;

private:
    ZThreadPoolSet *const m_threadPools;
    const int m_count;
};

class tst_Startup : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void everyServiceIsBound();
    void everyServiceWorks();
    void followsOneScheduledCall();
    void theSchedulerIsOnTheBusIfTheBusCameFirst_data();
    void theSchedulerIsOnTheBusIfTheBusCameFirst();
    void aServiceDoesNotGetWhatComesAfterIt();
    void endsWithItsEmitter();
};

void tst_Startup::everyServiceIsBound()
{
    const Application application;
    QCOMPARE(messages().take(QtWarningMsg), QStringList());
    const auto isBound = [](auto *service) {
        auto *delegate = dynamic_cast<ZDelegate *>(service);
        return delegate && !QSharedPointer<ZReference>(*delegate)->isNull();
    };
    QVERIFY(isBound(application.services.config));
    QVERIFY(isBound(application.services.context));
    QVERIFY(isBound(application.services.dbus));
    QVERIFY(isBound(application.services.emitter));
    QVERIFY(isBound(application.services.jobPools));
    QVERIFY(isBound(application.services.loader));
    QVERIFY(isBound(application.services.logger));
    QVERIFY(isBound(application.services.scheduler));
    QVERIFY(isBound(application.services.tempFiles));
    QVERIFY(isBound(application.services.threadPools));
}

void tst_Startup::everyServiceWorks()
{
    const Application application;
    const Consumer &services = application.services;
    QVERIFY(services.config->toJson0().contains(QStringLiteral("filesystem")));
    QCOMPARE(services.logger->log0(services.logger->log0(QStringLiteral("zdefault"))), 15);
    QVariant value = 1;
    QVERIFY(services.context->save0(value));
    QVariant loaded = 0;
    QVERIFY(services.context->load0(loaded));
    QCOMPARE(loaded, value);
    QVERIFY(services.jobPools->find0(QStringLiteral("jobs"), 3, 100));
    QVERIFY(services.tempFiles->newFile0());
    QVERIFY(application.deployed.drop(QStringLiteral("keeper")));
    const QSharedPointer<ZLibrary> keeper = services.loader->load0(QStringLiteral("keeper"));
    QVERIFY(keeper);
    const QSharedPointer<ZObject> root = *keeper;
    QVERIFY(QMetaObject::invokeMethod(root.data(), "letGo"));
}

void tst_Startup::followsOneScheduledCall()
{
    const Application application;
    const Consumer &services = application.services;
    const auto probe = QSharedPointer<Probe>::create(services.threadPools, 2);
    QVERIFY(services.dbus->bind0(QUrl(QStringLiteral("//probe")), probe));
    messages().takeAll();

    const QUrl url(QStringLiteral("//Probe/path?query"));
    const auto schedule = QSharedPointer<ZPeriodicSchedule>::create(1);
    auto activity = QSharedPointer<ZDbusActivity>::create(schedule, services.dbus, url, true);
    const QString threadName = QStringLiteral("ZSchedulerThread-") + activity->name();
    services.scheduler->schedule0(activity);
    const auto threads = services.threadPools->find0(QStringLiteral("Pool-ZSchedulerThread"));
    QVERIFY(threads->waitAll(30000)); // it is not handled for ever

    QCOMPARE(probe->urls, (QList<QUrl>{url, url, url}));
    QVERIFY(probe->withoutArguments);
    QCOMPARE(probe->threadNames, (QStringList{threadName, threadName, threadName}));
    QCOMPARE(probe->registered.size(), 1);
    QCOMPARE(probe->registered.first().toObject().value(QStringLiteral("Name")).toString(), threadName);
    QCOMPARE(threads->printd(), QJsonArray());

    const QList<Messages::Message> lines = messages().takeAll();
    QCOMPARE(lines.size(), 3);
    for (const Messages::Message &line : lines)
        QVERIFY2(line.text.endsWith(QStringLiteral("[zdefault] [8] (>) //probe/path?query")), qPrintable(line.text));

    const auto weak = activity.toWeakRef();
    activity.clear();
    QTRY_VERIFY(!probe->threads.first()); // by the event loop
    QVERIFY(!weak);
}

void tst_Startup::theSchedulerIsOnTheBusIfTheBusCameFirst_data()
{
    QTest::addColumn<bool>("busFirst");
    QTest::newRow("first") << true;
    QTest::newRow("later") << false;
}

void tst_Startup::theSchedulerIsOnTheBusIfTheBusCameFirst()
{
    QFETCH(bool, busFirst);
    const Wiring wiring;
    wiring->zemit0(busFirst ? ZDefaultDbus::TypeName : ZDefaultScheduler::TypeName);
    wiring->zemit0(busFirst ? ZDefaultScheduler::TypeName : ZDefaultDbus::TypeName);
    Consumer services;
    wiring->inject0(&services);
    QCOMPARE(services.dbus->find0(QUrl(QStringLiteral("//zscheduler"))), busFirst);
}

void tst_Startup::aServiceDoesNotGetWhatComesAfterIt()
{
    const Wiring wiring;
    auto *logger = qobject_cast<ZDefaultLogger *>(wiring->zemit0(ZDefaultLogger::TypeName));
    const QJsonObject log{{QStringLiteral("log"), QJsonObject{{QStringLiteral("any"), 1}}}};
    const QJsonObject config{{QStringLiteral("logger"), log}};
    wiring->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, config));
    QCOMPARE(logger->log0(QStringLiteral("any")), -1);
    wiring->inject0(logger);
    QCOMPARE(logger->log0(QStringLiteral("any")), 0);
}

void tst_Startup::endsWithItsEmitter()
{
    QScopedPointer<Application> application(new Application);
    const QVector<QPointer<QObject>> components = application->components;
    QCOMPARE(components.size(), 9);
    for (const QPointer<QObject> &one : components)
        QVERIFY(one);
    application.reset();
    for (const QPointer<QObject> &one : components)
        QVERIFY(!one);
}

QTEST_GUILESS_MAIN(tst_Startup)

#include "tst_startup.moc"
