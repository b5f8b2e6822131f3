// SPDX-License-Identifier: Apache-2.0
#include <zdelegate.h>
#include <zemitter.h>
#include <zlogger.h>
#include <zobject.h>
#include <ztempfile.h>

#include <QTemporaryFile>
#include <QTimer>

namespace test {

class Adder
{
public:
    virtual int add(int a, int b) = 0;
    virtual ~Adder() {}
};

class Helper
{};

} // namespace test

Q_DECLARE_INTERFACE(test::Adder, "test::Adder")
Q_DECLARE_METATYPE(test::Adder *)

namespace test {

class AdderDelegate : public ZDelegate, public Adder
{
public:
    explicit AdderDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(object)) { provide<Adder>(this); }
    int add(int a, int b) override { return forward(&Adder::add, 0, a, b); }
};

/// Derives from an interface where moc does not see it.
class Files : public ZTempFile
{
public:
    QSharedPointer<QTemporaryFile> newFile0() override { return {}; }
};

/// Serves `Adder`, and makes one mistake: that which its build names. It has all members that any of them takes.
class Mistaken : public ZObject, public Adder, public Files
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid FILE "guarded_named.json")
#ifdef MISTAKE_Unlisted
    Q_INTERFACES(test::Adder)
#else
    Q_INTERFACES(test::Adder ZTempFile)
#endif
#if defined(MISTAKE_ShortName)
    Q_PROPERTY(Adder *adder MEMBER m_adder)
#elif defined(MISTAKE_Undeclared)
    Q_PROPERTY(Helper *helper MEMBER m_helper)
#elif defined(MISTAKE_Const)
    Q_PROPERTY(const ZLogger *zLogger MEMBER m_constant)
#elif defined(MISTAKE_ReadOnly)
    Q_PROPERTY(ZLogger *zLogger READ logger)
#elif defined(MISTAKE_Value)
    Q_PROPERTY(ZLogger zLogger READ value WRITE setValue)
#elif defined(MISTAKE_Object)
    Q_PROPERTY(QObject *zLogger MEMBER m_object)
#elif defined(MISTAKE_OwnObject)
    Q_PROPERTY(QObject *adder MEMBER m_object)
#else
    Q_PROPERTY(test::Adder *adder MEMBER m_adder)
    Q_PROPERTY(int count MEMBER m_count)
    Q_PROPERTY(int constant READ constant CONSTANT)
    Q_PROPERTY(QTimer *timer MEMBER m_timer)
    Q_PROPERTY(QObject *config MEMBER m_object)
#endif
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (!emitter)
            return emitter;
#ifdef MISTAKE_ReadOnly
        m_logger->info0(QString("it was never given")); // which ends the process
#endif
        emitter->bind0(QSharedPointer<AdderDelegate>::create(shared()));
        return emitter;
    }

    int add(int a, int b) override { return a + b; }

    ZLogger *logger() const { return m_logger; }
    ZLogger &value() const { return *m_logger; }
    void setValue(const ZLogger &) {}
    int constant() const { return 1; }

    Adder *m_adder = nullptr;
    Helper *m_helper = nullptr;
    ZLogger *m_logger = nullptr;
    const ZLogger *m_constant = nullptr;
    QObject *m_object = nullptr;
    QTimer *m_timer = nullptr;
    int m_count = 0;
};

} // namespace test

#include "mistaken.moc"
