// SPDX-License-Identifier: Apache-2.0
// URLs and the subjects of a broker, both ways, and the body of a message.
#include "fuzz.h"

#include "body.h"
#include "subjects.h"

#include <QJsonDocument>
#include <QUrl>

namespace {

/// The rule of the bus: two URLs with one key are one endpoint.
QString keyOf(const QUrl &url)
{
    return QStringLiteral("//") + url.host(QUrl::FullyDecoded) + url.path(QUrl::FullyDecoded);
}

bool isSubject(const QByteArray &place)
{
    const QList<QByteArray> tokens = place.split('.');
    for (const QByteArray &token : tokens) {
        for (const char byte : token) {
            if (byte <= ' ' || byte > '~' || byte == '*' || byte == '>')
                return false;
        }
        if (token.isEmpty())
            return false;
    }
    return tokens.size() >= 2;
}

void checkUrl(const QUrl &url)
{
    const QByteArray place = Subjects::placeOf(url);
    if (place.isEmpty())
        return;
    promise(isSubject(place), "a place is part of a subject", url.toString());
    const QUrl back = Subjects::urlAt(place);
    promise(!back.isEmpty(), "each place is a URL's", QString::fromUtf8(place));
    promise(Subjects::placeOf(back) == place, "a URL and its place are one", QString::fromUtf8(place));
    // What is no text has no one way to be written as UTF-8.
    const QString key = keyOf(url);
    if (QString::fromUtf8(key.toUtf8()) == key && url.path(QUrl::FullyDecoded).startsWith(QLatin1Char('/')))
        promise(keyOf(back) == key, "two URLs with one place are one endpoint", url.toString());
    const Subjects subjects(QStringLiteral("a.b"));
    promise(subjects.urlIn(subjects.call(place)) == back, "the URL is found in the subject", url.toString());
    promise(subjects.isFor(back, subjects.call(place)), "a call has the subject of its URL", url.toString());
    QUrl named = back;
    named.setUserName(QStringLiteral("n.1"));
    const QByteArray byName = subjects.at(QStringLiteral("n.1"), place);
    promise(subjects.urlIn(byName) == named, "the URL is found behind a name", url.toString());
    promise(subjects.isFor(named, byName) && !subjects.isFor(back, byName), "a name is part of a call", url.toString());
}

void checkBody(const QByteArray &bytes)
{
    const std::optional<Body> body = Body::decode(bytes);
    if (!body)
        return;
    promise(QJsonDocument::fromJson(bytes).isObject(), "a body is an object", QString::fromUtf8(bytes));
    const std::optional<Body> again = Body::decode(body->encode());
    promise(again && again->in == body->in && again->out == body->out, "a body is what it was",
            QString::fromUtf8(bytes));
}

} // namespace

void fuzz(const QByteArray &input)
{
    const int end = input.indexOf('\n');
    checkUrl(QUrl::fromEncoded(input.left(end)));
    checkUrl(QUrl(QString::fromUtf8(input.left(end))));
    const QUrl url = Subjects::urlAt(input.left(end));
    promise(url.isEmpty() || Subjects::placeOf(url) == input.left(end), "a URL is where it was found",
            QString::fromUtf8(input));
    checkBody(input.mid(end + 1));
}
