// SPDX-License-Identifier: Apache-2.0
#include "zcodecalias.h"

#include "ztexts.h"

namespace {

QList<QByteArray> deepCopies(QList<QByteArray> texts)
{
    for (QByteArray &text : texts)
        text = zDeepCopy(text);
    return texts;
}

} // namespace

// The target is looked for before this codec is registered, so that it never finds itself.
ZCodecAlias::ZCodecAlias(const char *target, QByteArray name, QList<QByteArray> aliases)
    : ZCodecAlias(QTextCodec::codecForName(QByteArray(target)), std::move(name), std::move(aliases))
{}

ZCodecAlias::ZCodecAlias(const QTextCodec *target, QByteArray name, QList<QByteArray> aliases)
    : m_name(zDeepCopy(name)), m_aliases(deepCopies(std::move(aliases))), m_target(target)
{}

ZCodecAlias::~ZCodecAlias() = default;

QByteArray ZCodecAlias::name() const { return m_name; }

QList<QByteArray> ZCodecAlias::aliases() const { return m_aliases; }

int ZCodecAlias::mibEnum() const { return m_target ? m_target->mibEnum() : -1; }

QString ZCodecAlias::convertToUnicode(const char *in, int length, QTextCodec::ConverterState *state) const
{
    return m_target ? m_target->toUnicode(in, length, state) : QString();
}

QByteArray ZCodecAlias::convertFromUnicode(const QChar *in, int length, QTextCodec::ConverterState *state) const
{
    return m_target ? m_target->fromUnicode(in, length, state) : QByteArray();
}
