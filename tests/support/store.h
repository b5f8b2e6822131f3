// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHash>
#include <QList>
#include <QMap>
#include <QMetaType>
#include <QObject>
#include <QPair>
#include <QSet>
#include <QSharedPointer>
#include <QVector>

#include <zdelegate.h>

#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <tuple>
#include <vector>

/// What a store gives away.
class Ware
{
public:
    virtual QByteArray name() const { return "ware"; }
    virtual ~Ware() = default;
};

/// Knows its owner, as Qt has it.
class Known : public Ware, public QEnableSharedFromThis<Known>
{};

/// Knows its owner, as the standard library has it.
class StandardKnown : public Ware, public std::enable_shared_from_this<StandardKnown>
{};

/// Known by name only to those who give it and those who take it.
class Sealed;

/// Gives shared pointers away, in many wrappings.
class Store
{
public:
    using Shared = QSharedPointer<Ware>;
    using Standard = std::shared_ptr<Ware>;

    virtual Shared shared() = 0;
    virtual QSharedPointer<const Ware> constant() = 0;
    virtual QSharedPointer<Sealed> sealed() = 0;
    virtual QSharedPointer<Known> known() = 0;
    virtual QSharedPointer<const Known> constantKnown() = 0;
    virtual Shared nothing() = 0;
    virtual Standard standard() = 0;
    virtual std::shared_ptr<void> bare() = 0;
    virtual std::shared_ptr<StandardKnown> standardKnown() = 0;
    virtual std::shared_ptr<void> standardNothing() = 0;
    virtual QList<Shared> list() = 0;
    virtual QVector<Standard> vector() = 0;
    virtual QHash<QString, Shared> hash() = 0;
    virtual QMultiHash<QString, Shared> multiHash() = 0;
    virtual QMap<int, Standard> map() = 0;
    virtual QSet<Shared> set() = 0;
    virtual std::vector<Shared> standardVector() = 0;
    virtual std::list<Standard> standardList() = 0;
    virtual std::map<QString, Standard> standardMap() = 0;
    virtual std::set<Standard> standardSet() = 0;
    virtual QPair<Shared, Standard> pair() = 0;
    virtual std::tuple<int, Shared, Standard> tuple() = 0;
    virtual std::optional<Shared> optional() = 0;
    virtual QHash<QString, QList<QPair<int, Shared>>> nested() = 0;
    virtual std::optional<std::vector<QMap<int, Standard>>> standardNested() = 0;
    virtual ~Store() = default;
};
Q_DECLARE_INTERFACE(Store, "test::Store")
Q_DECLARE_METATYPE(Store *)

/// Has one ware of each kind in stock, and keeps what it gives away.
class Stock : public Store
{
public:
    Shared shared() override { return m_shared; }
    QSharedPointer<const Ware> constant() override { return m_shared; }
    QSharedPointer<Sealed> sealed() override
    {
        return {reinterpret_cast<Sealed *>(new Ware), [](Sealed *ware) { delete reinterpret_cast<Ware *>(ware); }};
    }
    QSharedPointer<Known> known() override { return m_known; }
    QSharedPointer<const Known> constantKnown() override { return m_known; }
    Shared nothing() override { return Shared(static_cast<Ware *>(nullptr)); }
    Standard standard() override { return m_standard; }
    std::shared_ptr<void> bare() override { return m_standard; }
    std::shared_ptr<StandardKnown> standardKnown() override { return m_standardKnown; }
    std::shared_ptr<void> standardNothing() override
    {
        return {nullptr, [ware = m_standard](void *) {}};
    }
    QList<Shared> list() override { return m_list; }
    QVector<Standard> vector() override { return {m_standard, {}}; }
    QHash<QString, Shared> hash() override { return m_hash; }
    QMultiHash<QString, Shared> multiHash() override
    {
        QMultiHash<QString, Shared> wares;
        wares.insert(QStringLiteral("a"), m_shared);
        wares.insert(QStringLiteral("a"), {});
        return wares;
    }
    QMap<int, Standard> map() override { return {{1, m_standard}, {2, {}}}; }
    QSet<Shared> set() override { return m_set; }
    std::vector<Shared> standardVector() override { return {m_shared, {}}; }
    std::list<Standard> standardList() override { return {m_standard}; }
    std::map<QString, Standard> standardMap() override { return {{QString("a"), m_standard}}; }
    std::set<Standard> standardSet() override { return {m_standard, {}}; }
    QPair<Shared, Standard> pair() override { return {m_shared, m_standard}; }
    std::tuple<int, Shared, Standard> tuple() override { return {1, m_shared, m_standard}; }
    std::optional<Shared> optional() override { return m_shared; }
    QHash<QString, QList<QPair<int, Shared>>> nested() override { return {{QString("a"), {{1, m_shared}, {2, {}}}}}; }
    std::optional<std::vector<QMap<int, Standard>>> standardNested() override { return {{{{1, m_standard}}}}; }

private:
    const Shared m_shared = Shared::create();
    const Standard m_standard = std::make_shared<Ware>();
    const QSharedPointer<Known> m_known = QSharedPointer<Known>::create();
    const std::shared_ptr<StandardKnown> m_standardKnown = std::make_shared<StandardKnown>();
    const QList<Shared> m_list{m_shared, m_shared, {}};
    const QHash<QString, Shared> m_hash{{QString("a"), m_shared}, {QString("b"), {}}};
    const QSet<Shared> m_set{m_shared, {}};
};

/// Stands for a `Store`.
class StoreDelegate : public ZDelegate, public Store
{
public:
    explicit StoreDelegate(QObject *object) : ZDelegate(refer(object)) { provide<Store>(this); }
    explicit StoreDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(object)) { provide<Store>(this); }

    Shared shared() override { return forward(&Store::shared, {}); }
    QSharedPointer<const Ware> constant() override { return forward(&Store::constant, {}); }
    QSharedPointer<Sealed> sealed() override { return forward(&Store::sealed, {}); }
    QSharedPointer<Known> known() override { return forward(&Store::known, {}); }
    QSharedPointer<const Known> constantKnown() override { return forward(&Store::constantKnown, {}); }
    Shared nothing() override { return forward(&Store::nothing, {}); }
    Standard standard() override { return forward(&Store::standard, {}); }
    std::shared_ptr<void> bare() override { return forward(&Store::bare, {}); }
    std::shared_ptr<StandardKnown> standardKnown() override { return forward(&Store::standardKnown, {}); }
    std::shared_ptr<void> standardNothing() override { return forward(&Store::standardNothing, {}); }
    QList<Shared> list() override { return forward(&Store::list, {}); }
    QVector<Standard> vector() override { return forward(&Store::vector, {}); }
    QHash<QString, Shared> hash() override { return forward(&Store::hash, {}); }
    QMultiHash<QString, Shared> multiHash() override { return forward(&Store::multiHash, {}); }
    QMap<int, Standard> map() override { return forward(&Store::map, {}); }
    QSet<Shared> set() override { return forward(&Store::set, {}); }
    std::vector<Shared> standardVector() override { return forward(&Store::standardVector, {}); }
    std::list<Standard> standardList() override { return forward(&Store::standardList, {}); }
    std::map<QString, Standard> standardMap() override { return forward(&Store::standardMap, {}); }
    std::set<Standard> standardSet() override { return forward(&Store::standardSet, {}); }
    QPair<Shared, Standard> pair() override { return forward(&Store::pair, {}); }
    std::tuple<int, Shared, Standard> tuple() override { return forward(&Store::tuple, {}); }
    std::optional<Shared> optional() override { return forward(&Store::optional, {}); }
    QHash<QString, QList<QPair<int, Shared>>> nested() override { return forward(&Store::nested, {}); }
    std::optional<std::vector<QMap<int, Standard>>> standardNested() override
    {
        return forward(&Store::standardNested, {});
    }
};
