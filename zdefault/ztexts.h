// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

/// A copy that shares nothing with `text`. A text may be constant data of a plugin, so what is kept beyond a call has
/// to be copied: the data is gone when the plugin is unloaded.
inline QString zDeepCopy(const QString &text) { return QString(text.constData(), text.size()); }
inline QByteArray zDeepCopy(const QByteArray &text) { return QByteArray(text.constData(), text.size()); }
/// Part by part, for one that is not valid has no text.
inline QUrl zDeepCopy(const QUrl &url)
{
    QUrl copy;
    copy.setScheme(zDeepCopy(url.scheme()));
    copy.setAuthority(zDeepCopy(url.authority(QUrl::FullyEncoded)), QUrl::TolerantMode);
    copy.setPath(zDeepCopy(url.path(QUrl::FullyEncoded)), QUrl::TolerantMode);
    if (url.hasQuery())
        copy.setQuery(zDeepCopy(url.query(QUrl::FullyEncoded)));
    if (url.hasFragment())
        copy.setFragment(zDeepCopy(url.fragment(QUrl::FullyEncoded)));
    return copy;
}

/// The part of `text` before its first dot; all of it if there is none.
inline QString zBeforeDot(const QString &text) { return text.left(text.indexOf(QLatin1Char('.'))); }
