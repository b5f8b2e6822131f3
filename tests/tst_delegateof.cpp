// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

#include <QPointer>
#include <QVector>

#include <zdelegateof.h>

#include <functional>
#include <memory>

/// A value of several parts.
struct Stamp
{
    QString place;
    int year;
};

/// What other interfaces are, too.
class Counted
{
public:
    virtual int count() const = 0;
    virtual ~Counted() {}
};

/// An operation of each kind.
class Album : public Counted
{
public:
    using Number = std::unique_ptr<int>;

    virtual QString title() const noexcept = 0;
    virtual void clear() noexcept = 0;
    virtual void put(const QString &place) = 0;
    virtual void put(const QString &place, int year) = 0;
    virtual bool find(const QString &place, Stamp *stamp, int &year) = 0;
    virtual Number exchange(Number number, QString &&text) = 0;
    virtual QSharedPointer<Stamp> rarest() = 0;
    virtual const Stamp *first() const = 0;
    virtual Stamp last() const = 0;
};
Q_DECLARE_INTERFACE(Album, "test::Album")
Q_DECLARE_METATYPE(Album *)

class AlbumDelegate : public ZDelegateOf<Album>
{
public:
    using ZDelegateOf::ZDelegateOf;

    int count() const override { return call(&Album::count, -1); }
    QString title() const noexcept override { return call(&Album::title, QStringLiteral("none")); }
    void clear() noexcept override { call(&Album::clear); }
    void put(const QString &place) override { call(qOverload<const QString &>(&Album::put), place); }
    void put(const QString &place, int year) override
    {
        call(qOverload<const QString &, int>(&Album::put), place, year);
    }
    bool find(const QString &place, Stamp *stamp, int &year) override
    {
        return call(&Album::find, {}, place, stamp, year);
    }
    Number exchange(Number number, QString &&text) override
    {
        return call(&Album::exchange, std::make_unique<int>(-1), std::move(number), std::move(text));
    }
    QSharedPointer<Stamp> rarest() override { return call(&Album::rarest, {}); }
    const Stamp *first() const override { return call(&Album::first, nullptr); }
    Stamp last() const override { return call(&Album::last, {QStringLiteral("nowhere"), -1}); }
};

/// Writes down what is put into it.
class Collection : public QObject, public Album
{
    Q_OBJECT
    Q_INTERFACES(Album)

public:
    int count() const override { return places.size(); }
    QString title() const noexcept override { return QStringLiteral("a collection"); }
    void clear() noexcept override { places.clear(); }
    void put(const QString &place) override { put(place, 0); }
    void put(const QString &place, int year) override { places.append({place, year}); }
    bool find(const QString &place, Stamp *stamp, int &year) override
    {
        for (const Stamp &each : qAsConst(places)) {
            if (each.place == place) {
                *stamp = each;
                year = each.year;
                return true;
            }
        }
        return false;
    }
    Number exchange(Number number, QString &&text) override
    {
        put(QString(std::move(text)), *number);
        return std::make_unique<int>(*number + 1);
    }
    QSharedPointer<Stamp> rarest() override
    {
        return QSharedPointer<Stamp>::create(Stamp{QStringLiteral("Mauritius"), 1847});
    }
    const Stamp *first() const override { return &places.first(); }
    Stamp last() const override { return places.last(); }

    QVector<Stamp> places;
};

using Make = std::function<AlbumDelegate *()>;
Q_DECLARE_METATYPE(Make)

class tst_DelegateOf : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void callsOperationsOfEachKind();
    void isNeutralOverNothing_data();
    void isNeutralOverNothing();
    void ownsAnObject();
    void sharesAnObjectThatIsShared();
    void providesItsInterface();
};

void tst_DelegateOf::callsOperationsOfEachKind()
{
    AlbumDelegate delegate(new Collection);
    delegate.put(QStringLiteral("Bergen"));
    delegate.put(QStringLiteral("Oslo"), 1855);
    QCOMPARE(delegate.count(), 2);
    QCOMPARE(delegate.title(), QStringLiteral("a collection"));
    QCOMPARE(delegate.first()->place, QStringLiteral("Bergen"));
    QCOMPARE(delegate.last().place, QStringLiteral("Oslo"));
    QCOMPARE(delegate.rarest()->year, 1847);

    Stamp stamp{{}, 0};
    int year = 0;
    QVERIFY(delegate.find(QStringLiteral("Oslo"), &stamp, year));
    QCOMPARE(stamp.place, QStringLiteral("Oslo"));
    QCOMPARE(year, 1855);

    QString place = QStringLiteral("Narvik");
    const Album::Number number = delegate.exchange(std::make_unique<int>(1900), std::move(place));
    QCOMPARE(*number, 1901);
    QVERIFY(place.isEmpty());
    QCOMPARE(delegate.last().place, QStringLiteral("Narvik"));

    delegate.clear();
    QCOMPARE(delegate.count(), 0);
}

void tst_DelegateOf::isNeutralOverNothing_data()
{
    QTest::addColumn<Make>("make");
    QTest::newRow("no object") << Make([] { return new AlbumDelegate(nullptr); });
    QTest::newRow("no shared object") << Make([] { return new AlbumDelegate(QSharedPointer<QObject>()); });
    QTest::newRow("without the interface") << Make([] { return new AlbumDelegate(new QObject); });
}

void tst_DelegateOf::isNeutralOverNothing()
{
    QFETCH(Make, make);
    const QScopedPointer<AlbumDelegate> delegate(make());
    QCOMPARE(delegate->count(), -1);
    QCOMPARE(delegate->title(), QStringLiteral("none"));
    delegate->clear();
    delegate->put({});
    delegate->put({}, 1);
    Stamp stamp{{}, 7};
    int year = 7;
    QVERIFY(!delegate->find({}, &stamp, year));
    QCOMPARE(stamp.year, 7);
    QCOMPARE(year, 7);
    QCOMPARE(*delegate->exchange(nullptr, {}), -1);
    QVERIFY(!delegate->rarest());
    QVERIFY(!delegate->first());
    QCOMPARE(delegate->last().place, QStringLiteral("nowhere"));
}

void tst_DelegateOf::ownsAnObject()
{
    const QPointer<QObject> object = new Collection;
    auto delegate = QSharedPointer<AlbumDelegate>::create(object.data());
    QVERIFY(object);
    delegate.clear();
    QVERIFY(!object);
}

void tst_DelegateOf::sharesAnObjectThatIsShared()
{
    auto object = QSharedPointer<Collection>::create();
    const QPointer<QObject> watched = object.data();
    auto delegate = QSharedPointer<AlbumDelegate>::create(object);
    object.clear();
    QVERIFY(watched);
    delegate.clear();
    QVERIFY(!watched);
}

void tst_DelegateOf::providesItsInterface()
{
    const AlbumDelegate delegate(nullptr);
    const QVariant value(delegate);
    QCOMPARE(value.userType(), qMetaTypeId<Album *>());
    QCOMPARE(value.value<Album *>(), static_cast<const Album *>(&delegate));
}

QTEST_GUILESS_MAIN(tst_DelegateOf)

#include "tst_delegateof.moc"
