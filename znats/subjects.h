// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

/**
 * The subjects under which one domain's processes call each other. What a URL addresses, its host and path, is its
 * place in a subject: "//clock/now" has the place "clock.now", and the bare "//clock" has "clock._".
 *
 * Thread:  any.
 * Failure: an empty place for a URL without a host, or one that is too long for a broker.
 */
class Subjects
{
public:
    explicit Subjects(const QString &domain);

    static QByteArray placeOf(const QUrl &url);
    static QByteArray barePlaceOf(const QUrl &url);
    /// The URL that has this place; empty if none has.
    static QUrl urlAt(const QByteArray &place);

    /// That of a call of `url` to `place`: whoever serves it, or the process that the URL names.
    QByteArray of(const QUrl &url, const QByteArray &place) const;
    /// Whoever serves the place.
    QByteArray call(const QByteArray &place) const;
    /// The process called `name`.
    QByteArray at(const QString &name, const QByteArray &place) const;
    /// All that the process called `name` is asked by its name.
    QByteArray allAt(const QString &name) const;
    QByteArray broadcast() const;
    QByteArray list() const;

    /// The URL that a call under this subject is for; empty if it is no call's.
    QUrl urlIn(const QByteArray &subject) const;
    /// Whether a call of `url` may have this subject: its own, or that of its bare host.
    bool isFor(const QUrl &url, const QByteArray &subject) const;

private:
    const QByteArray m_prefix;
};
