// SPDX-License-Identifier: Apache-2.0
// What is bound wrongly is told in the log, and nothing else comes of it.
#include "greeter.h"
#include "host.h"
#include "journal.h"
#include "testcase.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonObject>
#include <QPointer>
#include <QTemporaryFile>
#include <QThread>

#include <zdefaultconfig.h>
#include <zdefaultfilesystem.h>
#include <zdefaultlogger.h>
#include <zlender.h>
#include <zlibrary.h>
#include <zobject.h>

#include <functional>
#include <utility>

namespace {

const QString You = QStringLiteral("you");

QString secondOwner(const QString &name)
{
    return QStringLiteral("warning: %1 was bound by a second owner, which would have deleted it twice: write shared() "
                          "instead of QSharedPointer<QObject>(this)")
        .arg(name);
}

QString nothingProvided(const QString &name)
{
    return QStringLiteral("warning: %1 was bound but provides nothing, so nobody is given it: write "
                          "provide<Interface>(this) in its constructor, or derive it from ZDelegateOf<Interface>")
        .arg(name);
}

/// Provides nothing.
class Bare : public ZDelegate
{
public:
    Bare() : ZDelegate({}) {}
};

/// A host with a journal and the services `Greeter` and `ZTempFile`, which nobody serves at first.
class Stage
{
public:
    Stage()
    {
        m_host->bind0(greeter);
        m_host->bind0(files);
        journal = Journal::bind(m_host.emitter());
    }

    QSharedPointer<ZLibrary> load(const QString &plugin)
    {
        m_folder.drop(plugin);
        auto *loader = m_host.wire(QJsonObject{{QStringLiteral("deployed"), m_folder.path()}});
        journal->take();
        return loader->load0(plugin);
    }
    /// The warnings since they were last taken.
    QStringList warnings() { return journal->take().filter(QStringLiteral("warning: ")); }
    void dismiss()
    {
        greeter->replace({});
        files->replace({});
        settle();
    }
    bool isMapped(const QString &plugin) const
    {
        return ::isMapped(m_folder.filePath(QStringLiteral("lib%1.so").arg(plugin)));
    }
    ZEmitter *emitter() const { return m_host.emitter(); }

    const QSharedPointer<GreeterDelegate> greeter = QSharedPointer<GreeterDelegate>::create(nullptr);
    const QSharedPointer<ZTempFileDelegate> files = QSharedPointer<ZTempFileDelegate>::create(nullptr);
    QSharedPointer<Journal> journal;

private:
    const Folder m_folder;
    const Host m_host;
};

/// Does something whenever it is to warn.
class Busy : public Journal
{
public:
    using Journal::warning0;
    void warning0(const QString &text) override
    {
        Journal::warning0(text);
        deed();
    }

    std::function<void()> deed;
};

} // namespace

class tst_Misbound : public TestCase
{
    Q_OBJECT

private:
    template <class Component>
    void boundByASecondOwner();

private Q_SLOTS:
    void init() override;

    void pluginBoundByASecondOwnerIsToldAndEndsOnce_data();
    void pluginBoundByASecondOwnerIsToldAndEndsOnce();
    void pluginBoundByItsRightOwnersIsNotTold();
    void pluginWhoseLibraryIsGoneIsNotTold();
    void componentBoundByASecondOwnerIsToldAndEndsOnce() { boundByASecondOwner<ZDefaultTempFile>(); }
    void rootOfNoPluginBoundByASecondOwnerIsToldAndEndsOnce() { boundByASecondOwner<ZObject>(); }
    void componentThatWasLentIsNotTold();
    void pluginThatWasLentIsNotTold();
    void delegateOfAPluginThatProvidesNothingIsTold();

    void nothingIsToldWhereWarningsAreOff();
    void nothingIsToldWithoutALogger();
    void loggerIsToldOfItself();
    void loggerMayBindWronglyAsItWarns();
    void loggerMayWaitForAnotherThreadAsItWarns();
};

void tst_Misbound::init()
{
    TestCase::init();
    qApp->setProperty("ends", 0);
}

void tst_Misbound::pluginBoundByASecondOwnerIsToldAndEndsOnce_data()
{
    QTest::addColumn<int>("times");
    QTest::newRow("this") << 2;
    QTest::newRow("itself") << 1;
    QTest::newRow("to be deleted later") << 1;
    QTest::newRow("this beside its own") << 1;
}

void tst_Misbound::pluginBoundByASecondOwnerIsToldAndEndsOnce()
{
    QFETCH(int, times);
    qApp->setProperty("announced", QString::fromLatin1(QTest::currentDataTag()));
    Stage stage;
    QVERIFY(stage.load(QStringLiteral("twiceowned")));
    QCOMPARE(stage.warnings(), QVector<QString>(times, secondOwner(QStringLiteral("TwiceOwned"))).toList());
    settle();
    QCOMPARE(stage.greeter->greet(You), QStringLiteral("hello, you"));
    QCOMPARE(!stage.files->newFile0().isNull(), times == 2);
    QCOMPARE(qApp->property("ends").toInt(), 0);

    stage.dismiss();
    QCOMPARE(qApp->property("ends").toInt(), 1);
    QVERIFY(!stage.isMapped(QStringLiteral("twiceowned")));
}

void tst_Misbound::pluginBoundByItsRightOwnersIsNotTold()
{
    qApp->setProperty("announced", QStringLiteral("this beside its own"));
    Stage stage;
    QSharedPointer<ZLibrary> library = stage.load(QStringLiteral("twiceowned"));
    QSharedPointer<ZObject> root = *library;
    QCOMPARE(stage.warnings().size(), 1);

    stage.emitter()->bind0(QSharedPointer<GreeterDelegate>::create(root->shared()));
    stage.emitter()->bind0(QSharedPointer<GreeterDelegate>::create(root.data()));
    stage.emitter()->bind0(QSharedPointer<GreeterDelegate>::create(root)); // as the library has it
    QCOMPARE(stage.warnings(), QStringList());
    QCOMPARE(stage.greeter->greet(You), QStringLiteral("hello, you"));
    stage.dismiss();
    QCOMPARE(qApp->property("ends").toInt(), 0);
    root.clear();
    library.clear();
    settle();
    QCOMPARE(qApp->property("ends").toInt(), 1);
}

void tst_Misbound::pluginWhoseLibraryIsGoneIsNotTold()
{
    qApp->setProperty("announced", QStringLiteral("this beside its own"));
    Stage stage;
    QSharedPointer<ZLibrary> library = stage.load(QStringLiteral("twiceowned"));
    QSharedPointer<ZObject> root = *library;
    QCOMPARE(stage.warnings().size(), 1);
    stage.dismiss();
    library.clear();
    settle();

    stage.emitter()->bind0(QSharedPointer<GreeterDelegate>::create(root));
    QCOMPARE(stage.warnings(), QStringList());
    QCOMPARE(stage.greeter->greet(You), QStringLiteral("hello, you"));
    stage.dismiss();
    root.clear();
    settle();
    QCOMPARE(qApp->property("ends").toInt(), 1);
}

template <class Component>
void tst_Misbound::boundByASecondOwner()
{
    Stage stage;
    auto owner = QSharedPointer<Component>::create();
    const QPointer<Component> component = owner.data();
    stage.emitter()->bind0(QSharedPointer<ZTempFileDelegate>::create(QSharedPointer<QObject>(component.data())));
    QCOMPARE(stage.warnings(), QStringList{secondOwner(Component::staticMetaObject.className())});
    stage.emitter()->bind0(QSharedPointer<ZTempFileDelegate>::create(owner));
    QCOMPARE(stage.warnings(), QStringList());

    owner.clear();
    QVERIFY(component); // the emitter's share
    stage.dismiss();
    QVERIFY(!component);
}

void tst_Misbound::componentThatWasLentIsNotTold()
{
    Stage stage;
    auto owner = QSharedPointer<ZDefaultTempFile>::create();
    const QPointer<QObject> component = owner.data();
    QSharedPointer<QObject> loan = owner;
    ZLender(QSharedPointer<QObject>::create()).lend(loan); // as a delegate does with what a plugin returns
    stage.emitter()->bind0(QSharedPointer<ZTempFileDelegate>::create(std::exchange(loan, {})));
    QCOMPARE(stage.warnings(), QStringList());
    QVERIFY(stage.files->newFile0());

    owner.clear();
    stage.dismiss();
    QVERIFY(!component);
}

void tst_Misbound::pluginThatWasLentIsNotTold()
{
    qApp->setProperty("announced", QStringLiteral("anew")); // its second owner comes when the first one is gone
    Stage stage;
    QSharedPointer<ZLibrary> library = stage.load(QStringLiteral("twiceowned"));
    QSharedPointer<QObject> loan = QSharedPointer<ZObject>(*library)->shared();
    library.clear();
    ZLender(loan).lend(loan);
    stage.emitter()->bind0(QSharedPointer<GreeterDelegate>::create(std::exchange(loan, {})));
    QCOMPARE(stage.warnings(), QStringList());
    QCOMPARE(stage.greeter->greet(You), QStringLiteral("hello, you"));
    stage.dismiss();
    QCOMPARE(qApp->property("ends").toInt(), 1);
}

void tst_Misbound::delegateOfAPluginThatProvidesNothingIsTold()
{
    Stage stage;
    stage.load(QStringLiteral("unprovided"));
    QCOMPARE(stage.warnings(), QStringList{nothingProvided(QStringLiteral("Forgetful"))});
    QCOMPARE(stage.greeter->greet(You), QStringLiteral("nobody"));
}

void tst_Misbound::nothingIsToldWhereWarningsAreOff()
{
    const Wiring wiring;
    const auto journal = Journal::bind(wiring.emitter(), 0xff, false);
    wiring->bind0(QSharedPointer<Bare>::create());
    QCOMPARE(journal->entries(), QStringList());
}

void tst_Misbound::nothingIsToldWithoutALogger()
{
    const Wiring wiring;
    QVERIFY(!wiring->bind0(QSharedPointer<Bare>::create())); // and no message comes
    wiring->bind0(QSharedPointer<ZLoggerDelegate>::create(nullptr));
    QVERIFY(!wiring->bind0(QSharedPointer<Bare>::create()));
}

void tst_Misbound::loggerIsToldOfItself()
{
    const Wiring wiring;
    const auto logger = QSharedPointer<ZDefaultLogger>::create();
    wiring->bind0(QSharedPointer<ZLoggerDelegate>::create(QSharedPointer<QObject>(logger.data())));
    QCOMPARE(messages().take(QtWarningMsg).size(), 1);
}

void tst_Misbound::loggerMayBindWronglyAsItWarns()
{
    const Wiring wiring;
    const auto busy = QSharedPointer<Busy>::create();
    wiring->bind0(QSharedPointer<ZLoggerDelegate>::create(QSharedPointer<QObject>(busy)));
    busy->deed = [&] { wiring->bind0(QSharedPointer<Bare>::create()); };
    wiring->bind0(QSharedPointer<Bare>::create());
    QCOMPARE(busy->take().size(), 1);
    wiring->bind0(QSharedPointer<Bare>::create());
    QCOMPARE(busy->take().size(), 1); // each time anew
}

void tst_Misbound::loggerMayWaitForAnotherThreadAsItWarns()
{
    const Wiring wiring;
    const auto busy = QSharedPointer<Busy>::create();
    wiring->bind0(QSharedPointer<ZLoggerDelegate>::create(QSharedPointer<QObject>(busy)));
    bool isDone = false;
    busy->deed = [&] {
        const QScopedPointer<QThread> other(
            QThread::create([&] { wiring->bind0(QSharedPointer<GreeterDelegate>::create(nullptr)); }));
        other->start();
        isDone = other->wait(30000);
    };
    wiring->bind0(QSharedPointer<Bare>::create());
    QVERIFY(isDone);
}

QTEST_GUILESS_MAIN(tst_Misbound)

#include "tst_misbound.moc"
