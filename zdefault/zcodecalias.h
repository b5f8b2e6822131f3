// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QByteArray>
#include <QList>
#include <QTextCodec>

/**
 * Gives an existing text codec further names.
 *
 * Ownership: make it with `new`; then Qt's registry of codecs owns it, to the end of the application. A plugin may make
 *            one, and be unloaded. But it must not make one of a class that it derives from this: the registry asks
 *            every codec for its names at each look-up, and the code of that class would be gone.
 * Thread:    any; but make it while no other thread looks for a codec, which could find it half made.
 * Failure:   if the codec is unknown, each conversion gives a null text.
 */
class ZDEFAULT_EXPORT ZCodecAlias : public QTextCodec
{
public:
    /// Registers the codec that is called `target` at this moment under `name` and `aliases` as well.
    ZCodecAlias(const char *target, QByteArray name, QList<QByteArray> aliases);
    ~ZCodecAlias() override;

    QByteArray name() const override;
    QList<QByteArray> aliases() const override;
    /// The target's number; -1 if there is no target.
    int mibEnum() const override;

    QString convertToUnicode(const char *in, int length, QTextCodec::ConverterState *state) const override;
    QByteArray convertFromUnicode(const QChar *in, int length, QTextCodec::ConverterState *state) const override;

private:
    ZCodecAlias(const QTextCodec *target, QByteArray name, QList<QByteArray> aliases);

    const QByteArray m_name;
    const QList<QByteArray> m_aliases;
    const QTextCodec *const m_target;
};
