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

/// Returns "ZDefaultLogger*", and registers that type as a metatype.
ZDEFAULT_EXPORT const char *zDefaultLoggerTypeName();

/**
 * Writes to Qt's message handler, under the category "default". The section "logger" says what is written.
 *
 * Ownership: the emitter owns it, once it is announced.
 * Thread:    any; the categories do not change after the configuration has come.
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

    /// Sets the mask of a category, for those that ask for it from now on. For those that have asked before, call
    /// `ZNamedLogger::setMask`. False if the configuration has no such category; then nothing changes. On any thread.
    bool setMask(const QString &name, int mask);
    /// The categories of the configuration.
    QStringList categories() const;

    /// Reads the section "logger" of the first configuration that comes, and keeps to it.
    ZConfig *getSetZConfig(ZConfig *config = nullptr);
    /// Announces the logger, again at each call. Returns its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    void read(const QJsonObject &section);
    bool isCategory(int index) const;

    ZConfig *m_config = nullptr;
    QStringList m_names; // the categories, by index
    QList<QAtomicInt> m_masks;
    QAtomicInt m_count; // stored last, so that another thread sees no category or all of them
};

/// The delegate of a `ZLogger`. Otherwise as `ZDelegate`.
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
