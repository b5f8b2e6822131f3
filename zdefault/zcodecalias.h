// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QByteArray>
#include <QList>
#include <QTextCodec>

/**
 * An existing text codec under further names.
 *
 * Ownership: made with `new`; from then on it is the registry of codecs that owns it, to the end of the application. A
 *            plugin may make one and leave memory, but not one of a class that it derives from this: whose code would
 *            leave with it, and the registry asks every codec for its names at each look-up.
 * Thread:    any; but made while no other thread looks for a codec, which could meet it half made.
 * Failure:   over an unknown codec, each conversion gives a null text.
 */
class ZDEFAULT_EXPORT ZCodecAlias : public QTextCodec
{
public:
    /// Enters the codec that is called `target` at this moment under `name` and `aliases` too.
    ZCodecAlias(const char *target, QByteArray name, QList<QByteArray> aliases);
    ~ZCodecAlias() override;

    QByteArray name() const override;
    QList<QByteArray> aliases() const override;
    /// The target's; -1 if there is none.
    int mibEnum() const override;

    QString convertToUnicode(const char *in, int length, QTextCodec::ConverterState *state) const override;
    QByteArray convertFromUnicode(const QChar *in, int length, QTextCodec::ConverterState *state) const override;

private:
    ZCodecAlias(const QTextCodec *target, QByteArray name, QList<QByteArray> aliases);

    const QByteArray m_name;
    const QList<QByteArray> m_aliases;
    const QTextCodec *const m_target;
};
