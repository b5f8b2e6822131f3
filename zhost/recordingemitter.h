// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMutex>
#include <QPointer>
#include <QVector>

#include <zorderlyemitter.h>

class WiringBook;
class ZLogger;

/// An emitter that records in a book what is bound and injected, and warns of mistakes in the roots of plugins.
class RecordingEmitter : public ZOrderlyEmitter
{
    Q_OBJECT

public:
    /// `book` must live longer.
    explicit RecordingEmitter(WiringBook *book) : m_book(book) {}

    QObject *inject0(QObject *object) override;

    /// Logs the mistakes in the roots of plugins to `logger`, which must live as long. Call it before the first root
    /// comes.
    void tellTo(ZLogger *logger) { m_logger = logger; }

protected:
    void bound(int interfaceType, const QSharedPointer<QObject> &component) override;
    void injected(QObject *object, const QMetaProperty &property, bool isGiven) override;

private:
    bool isNewRoot(QObject *object);
    void judge(QObject *root);

    WiringBook *const m_book;
    ZLogger *m_logger = nullptr;
    QMutex m_mutex;                     // guards m_roots, and is held during no call
    QVector<QPointer<QObject>> m_roots; // that have been checked
};
