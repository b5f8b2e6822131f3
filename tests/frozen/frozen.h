// SPDX-License-Identifier: Apache-2.0
// The interfaces as they were published with 1.0, kept by hand: plugins built then are still about. This file does
// not follow a change of the real headers; a test that fails for it says that such a plugin would break.
#pragma once

#include <QGenericArgument>
#include <QJsonObject>
#include <QList>
#include <QRegularExpression>
#include <QSharedPointer>
#include <QString>
#include <QUrl>
#include <QVariant>
#include <QWeakPointer>

class QObject;
class QTemporaryFile;
class ZDbusSubscriber;
class ZDelegate;
class ZJobPool;
class ZLibrary;
class ZReference;
class ZScheduledActivity;
class ZThreadPool;

class ZConfig
{
public:
    virtual QJsonObject toJson0() = 0;
    virtual ~ZConfig() {}
};

class ZEmitter
{
public:
    virtual QSharedPointer<ZReference> bind0(QSharedPointer<ZDelegate>) = 0;
    virtual QObject *zemit0(const char *, QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument,
                            QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument,
                            QGenericArgument) = 0;
    virtual QObject *inject0(QObject *) = 0;
    virtual ~ZEmitter() {}
};

class ZLogger
{
public:
    virtual void info0(const QString &) = 0;
    virtual bool info0() = 0;
    virtual void debug0(const QString &) = 0;
    virtual bool debug0() = 0;
    virtual void warning0(const QString &) = 0;
    virtual bool warning0() = 0;
    virtual void critical0(const QString &) = 0;
    virtual bool critical0() = 0;
    virtual void fatal0(const QString &) = 0;
    virtual void log0(int, int, const QString &) = 0;
    virtual int log0(int) = 0;
    virtual int log0(const QString &) = 0;
    virtual ~ZLogger() {}
};

class ZLoader
{
public:
    virtual QSharedPointer<ZLibrary> loaded0(QString) = 0;
    virtual QSharedPointer<ZLibrary> load0(QString) = 0;
    virtual ~ZLoader() {}
};

class ZTempFile
{
public:
    virtual QSharedPointer<QTemporaryFile> newFile0() = 0;
    virtual ~ZTempFile() {}
};

class ZJobPoolSet
{
public:
    virtual QSharedPointer<ZJobPool> find0(const QString &, int, int) = 0;
    virtual ~ZJobPoolSet() {}
};

class ZThreadPoolSet
{
public:
    virtual QSharedPointer<ZThreadPool> find0(const QString &) = 0;
    virtual ~ZThreadPoolSet() {}
};

class ZDbus
{
public:
    virtual bool bind0(const QUrl &, QWeakPointer<ZDbusSubscriber>) = 0;
    virtual bool find0(const QUrl &) = 0;
    virtual QList<QUrl> findAll0(const QRegularExpression &) = 0;
    virtual bool invoke0(const QUrl &, QJsonObject *, QJsonObject *) = 0;
    virtual ~ZDbus() {}
};

class ZDbusLayer
{
public:
    virtual QString layer0() = 0;
    virtual bool next0(QSharedPointer<ZReference> &) = 0;
    virtual bool setNext0(const QSharedPointer<ZReference> &) = 0;
    virtual ~ZDbusLayer() {}
};

class ZDbusReach
{
public:
    enum Reached
    {
        Unsupported,
        Nobody,
        Refused,
        Handled
    };

    virtual Reached reach0(const QUrl &, QJsonObject *, QJsonObject *) = 0;
    virtual Reached reachAll0(const QRegularExpression &, const QUrl &, QJsonObject *, QJsonObject *) = 0;
    virtual ~ZDbusReach() {}
};

class ZDbusOutcome
{
public:
    virtual bool call0(const QUrl &, QJsonObject *, QJsonObject *, QJsonObject *) = 0;
    virtual ~ZDbusOutcome() {}
};

class ZDbusReceiver
{
public:
    virtual ~ZDbusReceiver() {}
    virtual void answered(qint64, const QJsonObject &) = 0;
};

class ZDbusAsync
{
public:
    virtual qint64 begin0(const QUrl &, const QJsonObject &, QWeakPointer<ZDbusReceiver>) = 0;
    virtual ~ZDbusAsync() {}
};

class ZLease
{
public:
    virtual bool want0(const QString &, int) = 0;
    virtual void forget0(const QString &) = 0;
    virtual bool begin0(const QString &, qint64, QString &) = 0;
    virtual ~ZLease() {}
};

class ZDbusSubscriber
{
public:
    virtual ~ZDbusSubscriber() {}
    virtual bool invoked(const QUrl &, QJsonObject *, QJsonObject *) = 0;
};

class ZContext
{
public:
    virtual bool load0(QVariant &) = 0;
    virtual bool save0(QVariant &) = 0;
    virtual ~ZContext() {}
};

class ZScheduler
{
public:
    virtual bool schedule0(QSharedPointer<ZScheduledActivity>) = 0;
    virtual ~ZScheduler() {}
};

class ZSchedule
{
public:
    virtual ~ZSchedule() {}
    virtual QString name() const = 0;
    virtual bool wait() = 0;
    virtual void cancel() = 0;
};
