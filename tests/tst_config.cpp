// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

#include <QJsonObject>
#include <QPointer>
#include <QThread>

#include <zdefaultconfig.h>
#include <zdefaultemitter.h>

namespace {

QJsonObject settings(int value) { return {{QStringLiteral("section"), value}}; }

} // namespace

/// Reads the configuration as any component does.
class Reader : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZConfig *zConfig MEMBER m_config)

public:
    QJsonObject read() const { return m_config->toJson0(); }

private:
    ZConfig *m_config = nullptr;
};

/// Takes what is bound, and answers with a reference.
class Registry : public QObject, public ZEmitter
{
    Q_OBJECT
    Q_INTERFACES(ZEmitter)

public:
    QSharedPointer<ZReference> bind0(QSharedPointer<ZDelegate> delegate) override
    {
        m_bound << delegate;
        auto previous = QSharedPointer<QObject>::create();
        m_previous = previous.data();
        return QSharedPointer<ZReference>::create(previous);
    }
    QObject *zemit0(const char *, QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument,
                    QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument,
                    QGenericArgument) override
    {
        return nullptr;
    }
    QObject *inject0(QObject *object) override { return object; }

    QList<QSharedPointer<ZDelegate>> m_bound;
    QPointer<QObject> m_previous;
};

class tst_Config : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void isEmptyWithoutAnArgument();
    void isWhatItWasMadeWith();
    void neverChanges();
    void isReadOnAnyThread();
    void isMadeByItsTypeName();
    void isMadeEmptyByItsTypeName();
    void announcesItself();
    void dropsTheReferenceThatItIsGiven();
    void aNullEmitterBindsNothing();
    void readingTheEmitterYieldsNull();
    void aSecondOneTakesOver();
    void theFirstOneLivesWhileSomebodyHoldsIt();
    void goesWithTheEmitter();
    void aDelegateOverNothingIsEmpty();
};

void tst_Config::isEmptyWithoutAnArgument() { QCOMPARE(ZDefaultConfig().toJson0(), QJsonObject()); }

void tst_Config::isWhatItWasMadeWith() { QCOMPARE(ZDefaultConfig(settings(1)).toJson0(), settings(1)); }

void tst_Config::neverChanges()
{
    QJsonObject given = settings(1);
    ZDefaultConfig config(given);
    given.insert(QStringLiteral("more"), 2);
    QCOMPARE(config.toJson0(), settings(1));
    QJsonObject answered = config.toJson0();
    answered.insert(QStringLiteral("more"), 2);
    QCOMPARE(config.toJson0(), settings(1));
}

void tst_Config::isReadOnAnyThread()
{
    ZDefaultConfig config(settings(1));
    QJsonObject answered;
    const QScopedPointer<QThread> thread(QThread::create([&] { answered = config.toJson0(); }));
    thread->start();
    QCOMPARE(config.toJson0(), settings(1));
    QVERIFY(thread->wait(30000));
    QCOMPARE(answered, settings(1));
}

void tst_Config::isMadeByItsTypeName()
{
    const Wiring wiring;
    auto *config =
        qobject_cast<ZDefaultConfig *>(wiring->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, settings(1))));
    QVERIFY(config);
    QCOMPARE(config->toJson0(), settings(1));
}

void tst_Config::isMadeEmptyByItsTypeName()
{
    const Wiring wiring;
    auto *config = qobject_cast<ZDefaultConfig *>(wiring->zemit0("ZDefaultConfig*"));
    QVERIFY(config);
    QCOMPARE(config->toJson0(), QJsonObject());
}

void tst_Config::announcesItself()
{
    Registry registry;
    auto *config = new ZDefaultConfig(settings(1));
    QCOMPARE(config->getSetZEmitter(&registry), &registry);
    QCOMPARE(registry.m_bound.size(), 1);
    const QVariant value(*registry.m_bound.first());
    QCOMPARE(QByteArray(value.typeName()), QByteArray("ZConfig*"));
    QVERIFY(value.value<ZConfig *>() != config);
    QCOMPARE(value.value<ZConfig *>()->toJson0(), settings(1));

    const QPointer<QObject> watched = config;
    registry.m_bound.clear(); // which owned it
    QVERIFY(!watched);
}

void tst_Config::dropsTheReferenceThatItIsGiven()
{
    Registry registry;
    (new ZDefaultConfig)->getSetZEmitter(&registry);
    QCOMPARE(registry.m_bound.size(), 1);
    QVERIFY(!registry.m_previous);
}

void tst_Config::aNullEmitterBindsNothing()
{
    ZDefaultConfig config(settings(1));
    QCOMPARE(config.getSetZEmitter(nullptr), nullptr);
    QVERIFY(config.setProperty("zEmitter", QVariant::fromValue<ZEmitter *>(nullptr)));
    QCOMPARE(config.toJson0(), settings(1)); // nobody took it over: it is on the stack
}

void tst_Config::readingTheEmitterYieldsNull()
{
    const Wiring wiring;
    auto *config = new ZDefaultConfig;
    QCOMPARE(config->property("zEmitter"), QVariant::fromValue<ZEmitter *>(nullptr));
    wiring->inject0(config);
    QCOMPARE(config->property("zEmitter"), QVariant::fromValue<ZEmitter *>(nullptr));
    QCOMPARE(config->getSetZEmitter(), nullptr);
}

void tst_Config::aSecondOneTakesOver()
{
    const Wiring wiring;
    const QPointer<QObject> first = wiring->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, settings(1)));
    Reader reader;
    wiring->inject0(&reader);
    QCOMPARE(reader.read(), settings(1));

    const QPointer<QObject> second = wiring->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, settings(2)));
    QVERIFY(!first);
    QVERIFY(second);
    QCOMPARE(reader.read(), settings(2));
}

void tst_Config::theFirstOneLivesWhileSomebodyHoldsIt()
{
    const Wiring wiring;
    auto first = QSharedPointer<ZDefaultConfig>::create(settings(1));
    const QPointer<QObject> watched = first.data();
    wiring->inject0(first.data());
    wiring->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, settings(2)));
    QVERIFY(watched);
    QCOMPARE(first->toJson0(), settings(1));
    first.clear();
    QVERIFY(!watched);
}

void tst_Config::goesWithTheEmitter()
{
    QPointer<QObject> config;
    {
        const Wiring wiring;
        config = wiring->zemit0(ZDefaultConfig::TypeName);
        QVERIFY(config);
    }
    QVERIFY(!config);
}

void tst_Config::aDelegateOverNothingIsEmpty()
{
    ZConfigDelegate delegate(new ZDefaultConfig(settings(1)));
    QCOMPARE(delegate.toJson0(), settings(1));
    delegate.replace({});
    QCOMPARE(delegate.toJson0(), QJsonObject());
}

QTEST_GUILESS_MAIN(tst_Config)

#include "tst_config.moc"
