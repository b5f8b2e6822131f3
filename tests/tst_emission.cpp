// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

#include <QJsonObject>
#include <QPointer>
#include <QThread>

#include <zdefaultconfig.h>
#include <zdefaultcontext.h>
#include <zdefaultdbus.h>
#include <zdefaultemitter.h>
#include <zdefaultfilesystem.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>

#include <functional>

/// Consumes the emitter.
class Keeper : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZEmitter *zEmitter MEMBER m_emitter)

public:
    Q_INVOKABLE Keeper() {}

    ZEmitter *m_emitter = nullptr;
};

/// Made by its name, with as many arguments as there can be.
class Made : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE Made() {}
    Q_INVOKABLE explicit Made(int a0) : m_arguments{a0} {}
    Q_INVOKABLE Made(int a0, int a1) : m_arguments{a0, a1} {}
    Q_INVOKABLE Made(int a0, int a1, int a2) : m_arguments{a0, a1, a2} {}
    Q_INVOKABLE Made(int a0, int a1, int a2, int a3) : m_arguments{a0, a1, a2, a3} {}
    Q_INVOKABLE Made(int a0, int a1, int a2, int a3, int a4) : m_arguments{a0, a1, a2, a3, a4} {}
    Q_INVOKABLE Made(int a0, int a1, int a2, int a3, int a4, int a5) : m_arguments{a0, a1, a2, a3, a4, a5} {}
    Q_INVOKABLE Made(int a0, int a1, int a2, int a3, int a4, int a5, int a6) : m_arguments{a0, a1, a2, a3, a4, a5, a6}
    {}
    Q_INVOKABLE Made(int a0, int a1, int a2, int a3, int a4, int a5, int a6, int a7)
        : m_arguments{a0, a1, a2, a3, a4, a5, a6, a7}
    {}
    Q_INVOKABLE Made(int a0, int a1, int a2, int a3, int a4, int a5, int a6, int a7, int a8)
        : m_arguments{a0, a1, a2, a3, a4, a5, a6, a7, a8}
    {}
    Q_INVOKABLE Made(int a0, int a1, int a2, int a3, int a4, int a5, int a6, int a7, int a8, int a9)
        : m_arguments{a0, a1, a2, a3, a4, a5, a6, a7, a8, a9}
    {}

    const QList<int> m_arguments;
};

/// Does something while it is constructed.
class Eager : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE Eager() { s_work(); }

    static std::function<void()> s_work;
};
std::function<void()> Eager::s_work;

/// Cannot be made by its name: it has no constructor for that, and could not have one.
class Abstract : public QObject
{
    Q_OBJECT

public:
    virtual void operation() = 0;
};

class Uninvokable : public QObject
{
    Q_OBJECT
};

/// Has a meta-object and such a constructor, and is no object.
class Gadget
{
    Q_GADGET

public:
    Q_INVOKABLE Gadget() {}
};

/// Answers each injection with one and the same object.
class StubbornEmitter : public ZDefaultEmitter
{
public:
    QObject *inject0(QObject *object) override
    {
        m_injected.reset(object);
        return &m_answer;
    }

    QScopedPointer<QObject> m_injected;
    QObject m_answer;
};

class tst_Emission : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void emissionMakesADefaultComponent_data();
    void emissionMakesADefaultComponent();
    void emissionPassesUpToTenArguments_data();
    void emissionPassesUpToTenArguments();
    void emissionThatFailsIsNull_data();
    void emissionThatFailsIsNull();
    void emissionMakesAnyRegisteredObject();
    void emissionLeavesOwnershipToTheCaller();
    void emissionInjects();
    void emissionWiresALogger();
    void emissionInjectsByTheVirtualOperation();
    void emissionThatFailsInjectsNothing();
    void emissionThroughTheDelegatePassesItsArguments();
    void emissionHoldsNoLockDuringConstruction();
};

void tst_Emission::initTestCase()
{
    qRegisterMetaType<Made *>();
    qRegisterMetaType<Eager *>();
    qRegisterMetaType<Keeper *>();
    qRegisterMetaType<Abstract *>();
    qRegisterMetaType<Uninvokable *>();
    qRegisterMetaType<Gadget *>();
    qRegisterMetaType<ZDbus *>();
    using Pointer = QtMetaTypePrivate::QMetaTypeFunctionHelper<QObject *>;
    QMetaType::registerNormalizedType("Unreflected*", Pointer::Destruct, Pointer::Construct, sizeof(QObject *),
                                      QMetaType::MovableType | QMetaType::PointerToQObject, nullptr);
}

void tst_Emission::emissionMakesADefaultComponent_data()
{
    QTest::addColumn<QByteArray>("typeName");
    QTest::addColumn<QByteArray>("className");
    const char *const typeNames[] = {ZDefaultConfig::TypeName,        ZDefaultEmitter::TypeName,
                                     ZDefaultLogger::TypeName,        ZDefaultLoader::TypeName,
                                     ZDefaultTempFile::TypeName,      ZDefaultJobPoolSet::TypeName,
                                     ZDefaultThreadPoolSet::TypeName, ZDefaultDbus::TypeName,
                                     ZDefaultContext::TypeName,       ZDefaultScheduler::TypeName};
    for (const QByteArray typeName : typeNames)
        QTest::newRow(typeName.constData()) << typeName << typeName.chopped(1);
}

void tst_Emission::emissionMakesADefaultComponent()
{
    QFETCH(QByteArray, typeName);
    ZDefaultEmitter emitter;
    const QScopedPointer<QObject> component(emitter.zemit0(typeName));
    QVERIFY(component);
    QTEST(QByteArray(component->metaObject()->className()), "className");
    QVERIFY(!component->parent());
}

void tst_Emission::emissionPassesUpToTenArguments_data()
{
    QTest::addColumn<int>("count");
    for (int count = 0; count <= 10; ++count)
        QTest::addRow("%d", count) << count;
}

void tst_Emission::emissionPassesUpToTenArguments()
{
    QFETCH(int, count);
    QList<int> numbers;
    QVector<QGenericArgument> arguments(10);
    numbers.reserve(count); // the arguments point into it
    for (int i = 0; i < count; ++i)
        numbers << 100 + i;
    for (int i = 0; i < count; ++i)
        arguments[i] = Q_ARG(int, numbers[i]);
    ZDefaultEmitter emitter;
    const QScopedPointer<QObject> object(emitter.zemit0("Made*", arguments[0], arguments[1], arguments[2], arguments[3],
                                                        arguments[4], arguments[5], arguments[6], arguments[7],
                                                        arguments[8], arguments[9]));
    auto *made = qobject_cast<Made *>(object.data());
    QVERIFY(made);
    QCOMPARE(made->m_arguments, numbers);
}

void tst_Emission::emissionThatFailsIsNull_data()
{
    QTest::addColumn<QByteArray>("typeName");
    QTest::addColumn<bool>("withArgument");
    QTest::newRow("null name") << QByteArray() << false;
    QTest::newRow("unknown") << QByteArray("Unknown*") << false;
    QTest::newRow("class, not pointer") << QByteArray("Made") << false;
    QTest::newRow("number") << QByteArray("int") << false;
    QTest::newRow("text") << QByteArray("QString") << false;
    QTest::newRow("plain pointer") << QByteArray("void*") << false;
    QTest::newRow("interface") << QByteArray("ZDbus*") << false;
    QTest::newRow("gadget") << QByteArray("Gadget*") << false;
    QTest::newRow("reference") << QByteArray("QSharedPointer<ZReference>") << false;
    QTest::newRow("abstract class") << QByteArray("Abstract*") << false;
    QTest::newRow("class without a meta-object") << QByteArray("Unreflected*") << false;
    QTest::newRow("no invokable constructor") << QByteArray("Uninvokable*") << false;
    QTest::newRow("argument of another type") << QByteArray("Made*") << true;
    QTest::newRow("more arguments than it takes") << QByteArray("Keeper*") << true;
}

void tst_Emission::emissionThatFailsIsNull()
{
    QFETCH(QByteArray, typeName);
    QFETCH(bool, withArgument);
    const char *const name = typeName.isNull() ? nullptr : typeName.constData();
    const QString text;
    const Wiring wiring;
    QVERIFY(!wiring->zemit0(name, withArgument ? Q_ARG(QString, text) : QGenericArgument()));
    QCOMPARE(messages().takeAll().size(), 0);
}

void tst_Emission::emissionMakesAnyRegisteredObject()
{
    ZDefaultEmitter emitter;
    const QScopedPointer<QObject> object(emitter.zemit0("QObject*"));
    QVERIFY(object);
    QCOMPARE(object->metaObject(), &QObject::staticMetaObject);
}

void tst_Emission::emissionLeavesOwnershipToTheCaller()
{
    QPointer<QObject> made;
    {
        const Wiring wiring;
        made = wiring->zemit0("Made*");
    }
    QVERIFY(made);
    delete made;
}

void tst_Emission::emissionInjects()
{
    const Wiring wiring;
    const QScopedPointer<QObject> object(wiring->zemit0("Keeper*"));
    auto *keeper = qobject_cast<Keeper *>(object.data());
    QVERIFY(keeper);
    QVERIFY(keeper->m_emitter);
}

void tst_Emission::emissionWiresALogger()
{
    const Wiring wiring;
    const QJsonObject categories{{QStringLiteral("greeter"), 6}};
    const QJsonObject json{{QStringLiteral("logger"), QJsonObject{{QStringLiteral("log"), categories}}}};
    wiring->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, json));
    auto *logger = qobject_cast<ZDefaultLogger *>(wiring->zemit0(ZDefaultLogger::TypeName));
    QVERIFY(logger);
    QCOMPARE(logger->log0(QStringLiteral("greeter")), 0);
    QCOMPARE(logger->log0(0), 6);
    const auto before = wiring->bind0(QSharedPointer<ZLoggerDelegate>::create(nullptr));
    QVERIFY(before && !before->isNull()); // it has announced itself
}

void tst_Emission::emissionInjectsByTheVirtualOperation()
{
    StubbornEmitter emitter;
    QCOMPARE(emitter.zemit0("Made*"), &emitter.m_answer);
    QVERIFY(qobject_cast<Made *>(emitter.m_injected.data()));
}

void tst_Emission::emissionThatFailsInjectsNothing()
{
    StubbornEmitter emitter;
    QCOMPARE(emitter.zemit0("Abstract*"), nullptr);
    QCOMPARE(emitter.zemit0("Unknown*"), nullptr);
}

void tst_Emission::emissionThroughTheDelegatePassesItsArguments()
{
    ZEmitterDelegate delegate(new ZDefaultEmitter);
    const QScopedPointer<QObject> object(delegate.zemit0("Made*", Q_ARG(int, 0), Q_ARG(int, 1), Q_ARG(int, 2),
                                                         Q_ARG(int, 3), Q_ARG(int, 4), Q_ARG(int, 5), Q_ARG(int, 6),
                                                         Q_ARG(int, 7), Q_ARG(int, 8), Q_ARG(int, 9)));
    auto *made = qobject_cast<Made *>(object.data());
    QVERIFY(made);
    QCOMPARE(made->m_arguments, (QList<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

void tst_Emission::emissionHoldsNoLockDuringConstruction()
{
    const Wiring wiring;
    bool done = false;
    Eager::s_work = [&] {
        auto *thread = QThread::create([&] { wiring->bind0(QSharedPointer<ZDbusDelegate>::create(nullptr)); });
        thread->start();
        done = thread->wait(30000);
        if (done) // else it hangs, and the failure is to be reported
            delete thread;
    };
    const QScopedPointer<QObject> eager(wiring->zemit0("Eager*"));
    QVERIFY(eager);
    QVERIFY(done);
}

QTEST_GUILESS_MAIN(tst_Emission)

#include "tst_emission.moc"
