// SPDX-License-Identifier: Apache-2.0
// Every operation of the interfaces, to be called and to be answered. The interfaces come from whoever includes
// this file: the real ones or the frozen ones.
#pragma once

#include <QJsonDocument>
#include <QStringList>

// Things that are told by their address alone.
template <class T>
T *at(quintptr address)
{
    return reinterpret_cast<T *>(address);
}
template <class T>
QSharedPointer<T> shared(quintptr address)
{
    // As Qt's own casts do it: nobody looks at what is there.
    return QtSharedPointer::copyAndSetPointer(at<T>(address), QSharedPointer<char>::create());
}

// Arguments and results as text.
inline QString text(const QString &value) { return value; }
inline QString text(const char *value) { return QString::fromLatin1(value); }
inline QString text(bool value) { return value ? QStringLiteral("true") : QStringLiteral("false"); }
inline QString text(int value) { return QString::number(value); }
inline QString text(qint64 value) { return QString::number(value); }
inline QString text(const QUrl &value) { return value.toString(); }
inline QString text(const QVariant &value) { return value.toString(); }
inline QString text(const QRegularExpression &value) { return value.pattern(); }
inline QString text(const QJsonObject &value)
{
    return QString::fromUtf8(QJsonDocument(value).toJson(QJsonDocument::Compact));
}
inline QString text(const QGenericArgument &value)
{
    return QString::fromLatin1(value.name()) + QString::number(*static_cast<int *>(value.data()));
}
inline QString text(const QList<QUrl> &value) { return QUrl::toStringList(value).join(QLatin1Char(' ')); }
template <class T>
QString text(T *value)
{
    return value ? QString::number(reinterpret_cast<quintptr>(value)) : QStringLiteral("null");
}
template <class T>
QString text(const QSharedPointer<T> &value)
{
    return text(value.data());
}
template <class T>
QString text(const QWeakPointer<T> &value)
{
    return text(value.toStrongRef());
}

/// An implementation that writes to a list what it is called with, its end included.
template <class Interface>
class Recorder;

/// `use` calls each operation of an implementation in the order of its slots and tells what came back. The lists say
/// what a `Recorder` is then called with and what it answers, and what comes back where there is no component.
template <class Interface>
struct Operations;

class Calls
{
public:
    explicit Calls(QStringList *list) : m_list(list) {}
    ~Calls() { m_list->append(QStringLiteral("end")); }

    template <class... Args>
    void add(const char *operation, const Args &...args)
    {
        const QStringList texts{text(args)...};
        m_list->append(QStringLiteral("%1(%2)").arg(QLatin1String(operation), texts.join(QLatin1Char(','))));
    }

private:
    Q_DISABLE_COPY(Calls)
    QStringList *m_list;
};

template <>
class Recorder<ZConfig> : public ZConfig
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    QJsonObject toJson0() override
    {
        m_calls.add("toJson0");
        return {{QStringLiteral("a"), 1}};
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZConfig>
{
    static QStringList use(ZConfig &config) { return {text(config.toJson0())}; }
    static QStringList calls() { return {"toJson0()"}; }
    static QStringList results() { return {"{\"a\":1}"}; }
    static QStringList neutral() { return {"{}"}; }
};

template <>
class Recorder<ZEmitter> : public ZEmitter
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    QSharedPointer<ZReference> bind0(QSharedPointer<ZDelegate> delegate) override
    {
        m_calls.add("bind0", delegate);
        return shared<ZReference>(16);
    }
    QObject *zemit0(const char *name, QGenericArgument a0, QGenericArgument a1, QGenericArgument a2,
                    QGenericArgument a3, QGenericArgument a4, QGenericArgument a5, QGenericArgument a6,
                    QGenericArgument a7, QGenericArgument a8, QGenericArgument a9) override
    {
        m_calls.add("zemit0", name, a0, a1, a2, a3, a4, a5, a6, a7, a8, a9);
        return at<QObject>(32);
    }
    QObject *inject0(QObject *object) override
    {
        m_calls.add("inject0", object);
        return at<QObject>(48);
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZEmitter>
{
    static QStringList use(ZEmitter &emitter)
    {
        return {text(emitter.bind0(shared<ZDelegate>(64))),
                text(emitter.zemit0("Name*", Q_ARG(int, 0), Q_ARG(int, 1), Q_ARG(int, 2), Q_ARG(int, 3), Q_ARG(int, 4),
                                    Q_ARG(int, 5), Q_ARG(int, 6), Q_ARG(int, 7), Q_ARG(int, 8), Q_ARG(int, 9))),
                text(emitter.inject0(at<QObject>(80)))};
    }
    static QStringList calls()
    {
        return {"bind0(64)", "zemit0(Name*,int0,int1,int2,int3,int4,int5,int6,int7,int8,int9)", "inject0(80)"};
    }
    static QStringList results() { return {"16", "32", "48"}; }
    static QStringList neutral() { return {"null", "null", "80"}; }
};

template <>
class Recorder<ZLogger> : public ZLogger
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    void info0(const QString &message) override { m_calls.add("info0", message); }
    bool info0() override { return test("info0"); }
    void debug0(const QString &message) override { m_calls.add("debug0", message); }
    bool debug0() override { return test("debug0"); }
    void warning0(const QString &message) override { m_calls.add("warning0", message); }
    bool warning0() override { return test("warning0"); }
    void critical0(const QString &message) override { m_calls.add("critical0", message); }
    bool critical0() override { return test("critical0"); }
    void fatal0(const QString &message) override { m_calls.add("fatal0", message); }
    void log0(int index, int kind, const QString &message) override { m_calls.add("log0", index, kind, message); }
    int log0(int index) override
    {
        m_calls.add("log0", index);
        return 5;
    }
    int log0(const QString &name) override
    {
        m_calls.add("log0", name);
        return 6;
    }

private:
    bool test(const char *operation)
    {
        m_calls.add(operation);
        return true;
    }

    Calls m_calls;
};

template <>
struct Operations<ZLogger>
{
    static QStringList use(ZLogger &logger)
    {
        QStringList results;
        logger.info0(QStringLiteral("i"));
        results << text(logger.info0());
        logger.debug0(QStringLiteral("d"));
        results << text(logger.debug0());
        logger.warning0(QStringLiteral("w"));
        results << text(logger.warning0());
        logger.critical0(QStringLiteral("c"));
        results << text(logger.critical0());
        logger.fatal0(QStringLiteral("f"));
        logger.log0(1, 2, QStringLiteral("l"));
        return results << text(logger.log0(3)) << text(logger.log0(QStringLiteral("n")));
    }
    static QStringList calls()
    {
        return {"info0(i)",     "info0()",     "debug0(d)", "debug0()",    "warning0(w)", "warning0()",
                "critical0(c)", "critical0()", "fatal0(f)", "log0(1,2,l)", "log0(3)",     "log0(n)"};
    }
    static QStringList results() { return {"true", "true", "true", "true", "5", "6"}; }
    static QStringList neutral() { return {"false", "false", "false", "false", "0", "0"}; } // not -1
};

template <>
class Recorder<ZLoader> : public ZLoader
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    QSharedPointer<ZLibrary> loaded0(QString name) override
    {
        m_calls.add("loaded0", name);
        return shared<ZLibrary>(16);
    }
    QSharedPointer<ZLibrary> load0(QString name) override
    {
        m_calls.add("load0", name);
        return shared<ZLibrary>(32);
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZLoader>
{
    static QStringList use(ZLoader &loader)
    {
        return {text(loader.loaded0(QStringLiteral("a"))), text(loader.load0(QStringLiteral("b")))};
    }
    static QStringList calls() { return {"loaded0(a)", "load0(b)"}; }
    static QStringList results() { return {"16", "32"}; }
    static QStringList neutral() { return {"null", "null"}; }
};

template <>
class Recorder<ZTempFile> : public ZTempFile
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    QSharedPointer<QTemporaryFile> newFile0() override
    {
        m_calls.add("newFile0");
        return shared<QTemporaryFile>(16);
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZTempFile>
{
    static QStringList use(ZTempFile &tempFile) { return {text(tempFile.newFile0())}; }
    static QStringList calls() { return {"newFile0()"}; }
    static QStringList results() { return {"16"}; }
    static QStringList neutral() { return {"null"}; }
};

template <>
class Recorder<ZJobPoolSet> : public ZJobPoolSet
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    QSharedPointer<ZJobPool> find0(const QString &name, int maxThreads, int expiryTimeout) override
    {
        m_calls.add("find0", name, maxThreads, expiryTimeout);
        return shared<ZJobPool>(16);
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZJobPoolSet>
{
    static QStringList use(ZJobPoolSet &set) { return {text(set.find0(QStringLiteral("p"), 3, -4))}; }
    static QStringList calls() { return {"find0(p,3,-4)"}; }
    static QStringList results() { return {"16"}; }
    static QStringList neutral() { return {"null"}; }
};

template <>
class Recorder<ZThreadPoolSet> : public ZThreadPoolSet
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    QSharedPointer<ZThreadPool> find0(const QString &name) override
    {
        m_calls.add("find0", name);
        return shared<ZThreadPool>(16);
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZThreadPoolSet>
{
    static QStringList use(ZThreadPoolSet &set) { return {text(set.find0(QStringLiteral("p")))}; }
    static QStringList calls() { return {"find0(p)"}; }
    static QStringList results() { return {"16"}; }
    static QStringList neutral() { return {"null"}; }
};

template <>
class Recorder<ZDbus> : public ZDbus
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override
    {
        m_calls.add("bind0", url, subscriber);
        return true;
    }
    bool find0(const QUrl &url) override
    {
        m_calls.add("find0", url);
        return true;
    }
    QList<QUrl> findAll0(const QRegularExpression &re) override
    {
        m_calls.add("findAll0", re);
        return {QUrl(QStringLiteral("//a")), QUrl(QStringLiteral("//b"))};
    }
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        m_calls.add("invoke0", url, in, out);
        return true;
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZDbus>
{
    static QStringList use(ZDbus &dbus)
    {
        const auto subscriber = shared<ZDbusSubscriber>(32);
        return {text(dbus.bind0(QUrl(QStringLiteral("z://h/b")), subscriber)),
                text(dbus.find0(QUrl(QStringLiteral("z://h/f")))),
                text(dbus.findAll0(QRegularExpression(QStringLiteral("h.*")))),
                text(dbus.invoke0(QUrl(QStringLiteral("z://h/i")), at<QJsonObject>(48), at<QJsonObject>(64)))};
    }
    static QStringList calls()
    {
        return {"bind0(z://h/b,32)", "find0(z://h/f)", "findAll0(h.*)", "invoke0(z://h/i,48,64)"};
    }
    static QStringList results() { return {"true", "true", "//a //b", "true"}; }
    static QStringList neutral() { return {"false", "false", "", "false"}; }
};

template <>
class Recorder<ZDbusLayer> : public ZDbusLayer
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    QString layer0() override
    {
        m_calls.add("layer0");
        return QStringLiteral("l");
    }
    bool next0(QSharedPointer<ZReference> &next) override
    {
        m_calls.add("next0", next);
        next = shared<ZReference>(32);
        return true;
    }
    bool setNext0(const QSharedPointer<ZReference> &next) override
    {
        m_calls.add("setNext0", next);
        return true;
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZDbusLayer>
{
    static QStringList use(ZDbusLayer &layer)
    {
        auto next = shared<ZReference>(16);
        const QString name = layer.layer0();
        const bool isNext = layer.next0(next);
        return {name, text(isNext), text(next), text(layer.setNext0(shared<ZReference>(48)))};
    }
    static QStringList calls() { return {"layer0()", "next0(16)", "setNext0(48)"}; }
    static QStringList results() { return {"l", "true", "32", "true"}; }
    static QStringList neutral() { return {"", "false", "16", "false"}; }
};

template <>
class Recorder<ZDbusReach> : public ZDbusReach
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    Reached reach0(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        m_calls.add("reach0", url, in, out);
        return Refused;
    }
    Reached reachAll0(const QRegularExpression &re, const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        m_calls.add("reachAll0", re, url, in, out);
        return Handled;
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZDbusReach>
{
    static QStringList use(ZDbusReach &bus)
    {
        const int one = bus.reach0(QUrl(QStringLiteral("z://h/r")), at<QJsonObject>(16), at<QJsonObject>(32));
        const int all = bus.reachAll0(QRegularExpression(QStringLiteral("h.*")), QUrl(QStringLiteral("z:/a")),
                                      at<QJsonObject>(48), at<QJsonObject>(64));
        return {text(one), text(all)};
    }
    static QStringList calls() { return {"reach0(z://h/r,16,32)", "reachAll0(h.*,z:/a,48,64)"}; }
    static QStringList results() { return {"2", "3"}; }
    static QStringList neutral() { return {"0", "0"}; }
};

template <>
class Recorder<ZDbusOutcome> : public ZDbusOutcome
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    bool call0(const QUrl &url, QJsonObject *in, QJsonObject *out, QJsonObject *outcome) override
    {
        m_calls.add("call0", url, in, out, outcome);
        return true;
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZDbusOutcome>
{
    static QStringList use(ZDbusOutcome &service)
    {
        return {text(service.call0(QUrl(QStringLiteral("z://h/c")), at<QJsonObject>(16), at<QJsonObject>(32),
                                   at<QJsonObject>(48)))};
    }
    static QStringList calls() { return {"call0(z://h/c,16,32,48)"}; }
    static QStringList results() { return {"true"}; }
    static QStringList neutral() { return {"false"}; }
};

template <>
class Recorder<ZDbusAsync> : public ZDbusAsync
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    qint64 begin0(const QUrl &url, const QJsonObject &request, QWeakPointer<ZDbusReceiver> receiver) override
    {
        m_calls.add("begin0", url, request, receiver);
        return Q_INT64_C(1) << 40;
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZDbusAsync>
{
    static QStringList use(ZDbusAsync &service)
    {
        const auto receiver = shared<ZDbusReceiver>(16);
        return {
            text(service.begin0(QUrl(QStringLiteral("z://h/b")), QJsonObject{{QStringLiteral("in"), 1}}, receiver))};
    }
    static QStringList calls() { return {"begin0(z://h/b,{\"in\":1},16)"}; }
    static QStringList results() { return {"1099511627776"}; }
    static QStringList neutral() { return {"0"}; }
};

template <>
class Recorder<ZLease> : public ZLease
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    bool want0(const QString &name, int msecs) override
    {
        m_calls.add("want0", name, msecs);
        return true;
    }
    void forget0(const QString &name) override { m_calls.add("forget0", name); }
    bool begin0(const QString &name, qint64 slot, QString &reason) override
    {
        m_calls.add("begin0", name, slot);
        reason = QStringLiteral("r");
        return false;
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZLease>
{
    static QStringList use(ZLease &lease)
    {
        QString reason;
        const bool isWanted = lease.want0(QStringLiteral("w"), 5);
        const bool mayBegin = lease.begin0(QStringLiteral("b"), Q_INT64_C(1) << 40, reason);
        lease.forget0(QStringLiteral("f"));
        return {text(isWanted), text(mayBegin), reason};
    }
    static QStringList calls() { return {"want0(w,5)", "begin0(b,1099511627776)", "forget0(f)"}; }
    static QStringList results() { return {"true", "false", "r"}; }
    static QStringList neutral() { return {"false", "false", "nobody serves ZLease"}; }
};

template <>
class Recorder<ZContext> : public ZContext
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    bool load0(QVariant &value) override
    {
        m_calls.add("load0", value);
        value = 7;
        return true;
    }
    bool save0(QVariant &value) override
    {
        m_calls.add("save0", value);
        return true;
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZContext>
{
    static QStringList use(ZContext &context)
    {
        QVariant value = 1;
        const bool loaded = context.load0(value);
        const bool saved = context.save0(value);
        return {text(loaded), text(value), text(saved)};
    }
    static QStringList calls() { return {"load0(1)", "save0(7)"}; }
    static QStringList results() { return {"true", "7", "true"}; }
    static QStringList neutral() { return {"false", "1", "false"}; }
};

template <>
class Recorder<ZScheduler> : public ZScheduler
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    bool schedule0(QSharedPointer<ZScheduledActivity> activity) override
    {
        m_calls.add("schedule0", activity);
        return true;
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZScheduler>
{
    static QStringList use(ZScheduler &scheduler)
    {
        return {text(scheduler.schedule0(shared<ZScheduledActivity>(16)))};
    }
    static QStringList calls() { return {"schedule0(16)"}; }
    static QStringList results() { return {"true"}; }
    static QStringList neutral() { return {"false"}; }
};

template <>
class Recorder<ZDbusSubscriber> : public ZDbusSubscriber
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        m_calls.add("invoked", url, in, out);
        return true;
    }

private:
    Calls m_calls;
};

template <>
struct Operations<ZDbusSubscriber>
{
    static QStringList use(ZDbusSubscriber &subscriber)
    {
        return {text(subscriber.invoked(QUrl(QStringLiteral("z://h/i")), at<QJsonObject>(16), at<QJsonObject>(32)))};
    }
    static QStringList calls() { return {"invoked(z://h/i,16,32)"}; }
    static QStringList results() { return {"true"}; }
};

template <>
class Recorder<ZDbusReceiver> : public ZDbusReceiver
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    void answered(qint64 call, const QJsonObject &answer) override { m_calls.add("answered", call, answer); }

private:
    Calls m_calls;
};

template <>
struct Operations<ZDbusReceiver>
{
    static QStringList use(ZDbusReceiver &receiver)
    {
        receiver.answered(7, QJsonObject{{QStringLiteral("handled"), true}});
        return {};
    }
    static QStringList calls() { return {"answered(7,{\"handled\":true})"}; }
    static QStringList results() { return {}; }
};

template <>
class Recorder<ZSchedule> : public ZSchedule
{
public:
    explicit Recorder(QStringList *calls) : m_calls(calls) {}

    QString name() const override
    {
        m_calls.add("name");
        return QStringLiteral("n");
    }
    bool wait() override
    {
        m_calls.add("wait");
        return true;
    }
    void cancel() override { m_calls.add("cancel"); }

private:
    mutable Calls m_calls;
};

template <>
struct Operations<ZSchedule>
{
    static QStringList use(ZSchedule &schedule)
    {
        const QStringList results{schedule.name(), text(schedule.wait())};
        schedule.cancel();
        return results;
    }
    static QStringList calls() { return {"name()", "wait()", "cancel()"}; }
    static QStringList results() { return {"n", "true"}; }
};
