// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zconfig.h"
#include "zdelegate.h"
#include "zemitter.h"
#include "zlogger.h"
#include "zowned.h"

#include <QAtomicInt>
#include <QList>
#include <QStringList>

/// "ZDefaultLogger*", registered as a metatype.
ZDEFAULT_EXPORT const char *zDefaultLoggerTypeName();

/**
 * Writes to Qt's message handler, under the category "default"; what is written is switched by the section "logger".
 *
 * Ownership: the emitter's, once announced.
 * Thread:    any; the categories are fixed when the configuration comes.
 * Failure:   sections and values of another type than expected are skipped silently.
 */
class ZDEFAULT_EXPORT ZDefaultLogger : public QObject, public ZLogger, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZLogger)
    Q_PROPERTY(ZConfig *config READ getSetZConfig WRITE getSetZConfig)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    static const char *const TypeName;

    Q_INVOKABLE ZDefaultLogger();

    void info0(const QString &text) override;
    bool info0() override;
    void debug0(const QString &text) override;
    bool debug0() override;
    void warning0(const QString &text) override;
    bool warning0() override;
    void critical0(const QString &text) override;
    bool critical0() override;
    void fatal0(const QString &text) override;
    /// Lines are written at debug severity, whatever their kind.
    void log0(int index, int kind, const QString &text) override;
    int log0(int index) override;
    int log0(const QString &name) override;

    /// Has who asks for the mask of a category get this one from now on; who has asked before is told by
    /// `ZNamedLogger::setMask`. False, and nothing, if the configuration has no such category. On any thread.
    bool setMask(const QString &name, int mask);
    /// The categories of the configuration.
    QStringList categories() const;

    /// Reads the section "logger" of the first configuration that comes, and keeps to it.
    ZConfig *getSetZConfig(ZConfig *config = nullptr);
    /// Announces the logger, each time anew. Answers its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    void read(const QJsonObject &section);
    bool isCategory(int index) const;

    ZConfig *m_config = nullptr;
    QStringList m_names; // of the categories, by index
    QList<QAtomicInt> m_masks;
    QAtomicInt m_count; // stored last: another thread sees no category, or all of them
};

/// Stands for a `ZLogger`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZLoggerDelegate : public ZDelegate, public ZLogger
{
public:
    explicit ZLoggerDelegate(QObject *object);
    explicit ZLoggerDelegate(QSharedPointer<QObject> object);

    void info0(const QString &text) override;
    bool info0() override;
    void debug0(const QString &text) override;
    bool debug0() override;
    void warning0(const QString &text) override;
    bool warning0() override;
    void critical0(const QString &text) override;
    bool critical0() override;
    void fatal0(const QString &text) override;
    void log0(int index, int kind, const QString &text) override;
    int log0(int index) override;
    int log0(const QString &name) override;
};
